// unit.h - print units: each has its switch between terminal and printer, its headings and its print job. Private to
// the runtime.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <string_view>

#include "runtime/print/job.h"
#include "runtime/print/paginator.h"
#include "runtime/vdefc.h"

namespace velda {

enum class PrintTarget { Terminal, Printer };

class PrintUnit {
  public:
    PrintUnit(DP *dp, int number) : dp_(dp), number_(number) {}
    // Completes a job that is still open.
    ~PrintUnit();
    PrintUnit(const PrintUnit &) = delete;
    PrintUnit &operator=(const PrintUnit &) = delete;

    void print(std::string_view text);
    void new_page();
    // The other target keeps its page and its job, to go on with.
    void switch_to(PrintTarget target) { target_ = target; }
    void set_heading(const Heading &heading);
    void set_footing(const Heading &footing);

    // Ends the print job, if there is one: the last page gets its footing, and the job is handed over. A failure ends
    // the command with a message.
    void close_job();
    // The last page on the terminal gets its footing.
    void finish_terminal_page();

  private:
    class Pages;
    Paginator &paginator() { return paginators_[static_cast<std::size_t>(target_)]; }
    void write_to_job(std::string_view bytes);
    void pause();
    [[noreturn]] void fail(const Error &error);

    DP *dp_;
    int number_;
    PrintTarget target_ = PrintTarget::Terminal;
    std::array<Paginator, 2> paginators_;  // by target
    std::unique_ptr<PrintJob> job_;
    bool job_has_output_ = false;
    bool pauses_ = true;
};

// The units of a command; one is made when it is first named.
class PrintUnits {
  public:
    explicit PrintUnits(DP &dp) : dp_(&dp) {}
    PrintUnit &unit(int number);
    std::map<int, PrintUnit> &all() { return units_; }
    // Completes all pages and jobs and forgets all units: the end of a command. A job that cannot be handed over ends
    // the command with a message, after the others have been.
    void end_all();

  private:
    DP *dp_;
    std::map<int, PrintUnit> units_;
};

}  // namespace velda
