// paginator.h - cuts the output of a print unit into pages with heading and footing. Private to the runtime.
//
// A page begins with the first byte that is printed on it, not where the page before ended: the last page of a report
// is not followed by a heading with nothing below. With neither heading nor footing text passes unchanged and unpaged.
#pragma once

#include <string_view>

#include "runtime/print/heading.h"

namespace velda {

// Where pages go, and what happens between them.
class PageOutput {
  public:
    virtual ~PageOutput() = default;
    virtual void write(std::string_view bytes) = 0;
    // Before the heading of the page with this number, counted from 1: the place for a form feed, or a pause.
    virtual void begin_page(int number) = 0;
    virtual PageFacts facts(int number) = 0;
    // Lines that one page takes, heading and footing included.
    virtual int page_lines() = 0;
};

class Paginator {
  public:
    // A heading shows from the next page on; the first one of all begins page 1.
    void set_heading(Heading heading) { heading_ = std::move(heading); }
    void set_footing(Heading footing) { footing_ = std::move(footing); }
    const Heading &heading() const { return heading_; }
    const Heading &footing() const { return footing_; }

    void print(std::string_view text, PageOutput &output);

    // The next output begins a page. Nothing happens, and the result is false, when nothing is on the present one.
    bool new_page(PageOutput &output);

    // Completes the last page; the next output begins page 1 again.
    void finish(PageOutput &output);

  private:
    bool pages() const { return !heading_.empty() || !footing_.empty(); }
    void begin_page(PageOutput &output);
    void end_page(PageOutput &output);
    void end_line(PageOutput &output);
    void print_paged(std::string_view text, PageOutput &output);

    Heading heading_;
    Heading footing_;
    int page_ = 0;          // number of the present or last page
    bool on_page_ = false;  // the present page has begun
    int lines_used_ = 0;
    int column_ = 0;
};

}  // namespace velda
