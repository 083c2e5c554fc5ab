#include "runtime/print/paginator.h"

#include <algorithm>
#include <string>

namespace velda {
namespace {
constexpr char FormFeed = '\f';
constexpr std::string_view LineEnds = "\n\f";
}  // namespace

void Paginator::print(std::string_view text, PageOutput &output) {
    if (text.empty()) return;
    if (pages())
        print_paged(text, output);
    else
        output.write(text);
}

void Paginator::print_paged(std::string_view text, PageOutput &output) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(LineEnds), text.size());
        const std::string_view piece = text.substr(0, end);
        const bool only_form_feed = piece.empty() && text[end] == FormFeed;
        if (!on_page_ && !only_form_feed) begin_page(output);
        output.write(piece);
        column_ += columns_of(piece);
        if (end == text.size()) return;
        if (text[end] == FormFeed)
            new_page(output);
        else
            end_line(output);
        text.remove_prefix(end + 1);
    }
}

// A line that is longer than the page is wide takes several of its lines.
void Paginator::end_line(PageOutput &output) {
    const int columns = std::max(output.facts(page_).columns, 1);
    output.write("\n");
    lines_used_ += std::max(1, (column_ + columns - 1) / columns);
    column_ = 0;
    const int body_end = output.page_lines() - footing_.line_count();
    if (lines_used_ >= std::max(body_end, heading_.line_count() + 1)) end_page(output);
}

void Paginator::begin_page(PageOutput &output) {
    output.begin_page(++page_);
    on_page_ = true;
    for (const std::string &line : heading_.render(output.facts(page_))) output.write(line + "\n");
    lines_used_ = heading_.line_count();
    column_ = 0;
}

// The footing stands at the foot of the page, however much of the page was used.
void Paginator::end_page(PageOutput &output) {
    if (!footing_.empty()) {
        const int unused = output.page_lines() - footing_.line_count() - lines_used_;
        output.write(std::string(static_cast<std::size_t>(std::max(unused, 0)), '\n'));
        for (const std::string &line : footing_.render(output.facts(page_))) output.write(line + "\n");
    }
    on_page_ = false;
}

bool Paginator::new_page(PageOutput &output) {
    if (!on_page_) return false;
    if (column_ > 0) {
        output.write("\n");
        ++lines_used_;
    }
    end_page(output);
    return true;
}

void Paginator::finish(PageOutput &output) {
    new_page(output);
    page_ = 0;
}

}  // namespace velda
