#include "runtime/print/unit.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "runtime/convert/convert.h"
#include "runtime/port/session_port.h"
#include "runtime/process/context.h"
#include "runtime/process/output.h"
#include "runtime/process/process.h"
#include "runtime/terminal/device.h"
#include "runtime/terminal/session.h"

namespace velda {
namespace {

constexpr int DefaultJobColumns = 132;
constexpr int DefaultJobLines = 66;
constexpr int FewestPageLines = 3;
constexpr char CancelKey = 0x18;  // control X

int environment_number(const char *name, int otherwise) {
    const char *const value = std::getenv(name);
    const long number = value ? std::strtol(value, nullptr, 10) : 0;
    return number > 0 && number <= 10000 ? static_cast<int>(number) : otherwise;
}

}  // namespace

// The pages of a unit, on whichever target it has now.
class PrintUnit::Pages : public PageOutput {
  public:
    explicit Pages(PrintUnit &unit) : unit_(unit), printer_(unit.target_ == PrintTarget::Printer) {}

    void write(std::string_view bytes) override {
        if (printer_)
            unit_.write_to_job(bytes);
        else
            write_output(unit_.dp_, bytes);
    }

    void begin_page(int number) override {
        if (printer_) {
            if (number > 1) unit_.write_to_job("\f");
            return;
        }
        if (!output_is_terminal(unit_.dp_)) return;
        if (number > 1) unit_.pause();
        write_output(unit_.dp_, terminal_description()->sequence(Capability::ClearScreen));
    }

    PageFacts facts(int number) override {
        const int columns = printer_ ? environment_number("VELDAPRINTWIDTH", DefaultJobColumns) : screen_columns();
        VAR time_and_date;
        VLibGTIMEDATE_BB(unit_.dp_, &time_and_date);  // "14:05:09 21 NOV 2026"
        const std::string_view now = time_and_date.view();
        return {number, columns, std::string(now.substr(now.find(' ') + 1)), std::string(now)};
    }

    // The line feed of the last line must not scroll a screen's heading away, nor carry a printer past its form feed.
    int page_lines() override {
        const int lines = printer_ ? environment_number("VELDAPRINTDEPTH", DefaultJobLines) : screen_lines();
        return std::max(lines, FewestPageLines) - 1;
    }

  private:
    PrintUnit &unit_;
    bool printer_;
};

PrintUnit::~PrintUnit() {
    if (!job_) return;
    if (const auto finished = job_->finish(); !finished) std::fprintf(stderr, "%s\n", finished.error().message.c_str());
}

void PrintUnit::print(std::string_view text) {
    Pages pages(*this);
    paginator().print(text, pages);
}

void PrintUnit::new_page() {
    Pages pages(*this);
    if (!paginator().new_page(pages) && target_ == PrintTarget::Printer && job_has_output_) write_to_job("\f");
}

void PrintUnit::set_heading(const Heading &heading) {
    for (Paginator &paginator : paginators_) paginator.set_heading(heading);
    pauses_ = true;
}

void PrintUnit::set_footing(const Heading &footing) {
    for (Paginator &paginator : paginators_) paginator.set_footing(footing);
    pauses_ = true;
}

void PrintUnit::write_to_job(std::string_view bytes) {
    if (bytes.empty()) return;
    if (!job_) {
        const auto port = session_port(dp_);
        if (!port) fail(port.error());
        auto begun = begin_print_job({*port, number_});
        if (!begun) fail(begun.error());
        job_ = std::move(*begun);
    }
    job_has_output_ = true;
    if (const auto written = job_->write(bytes); !written) fail(written.error());
}

void PrintUnit::close_job() {
    const PrintTarget present = target_;
    target_ = PrintTarget::Printer;
    Pages pages(*this);
    paginator().finish(pages);
    target_ = present;
    if (!job_) return;
    const auto finished = job_->finish();
    if (!finished) fail(finished.error());
    job_.reset();
    job_has_output_ = false;
}

void PrintUnit::finish_terminal_page() {
    target_ = PrintTarget::Terminal;
    Pages pages(*this);
    paginator().finish(pages);
}

// Any key goes on; N does so without further pauses, and Q or control X ends the command.
void PrintUnit::pause() {
    const bool wanted = pauses_ && paginator().heading().pauses() && paginator().footing().pauses();
    if (!wanted || !input_is_terminal()) return;
    const KeyRead key = read_key(dp_, {});
    if (key.outcome != KeyOutcome::Key) return;
    if (key.byte == 'n' || key.byte == 'N') pauses_ = false;
    if (key.byte == 'q' || key.byte == 'Q' || key.byte == CancelKey) VLibCSTOP_VI(dp_, 1, 0);
}

// The job takes no more; a later print begins another.
void PrintUnit::fail(const Error &error) {
    job_.reset();
    job_has_output_ = false;
    const VAR message(error.message);
    VLibCSTOP_VI(dp_, 2, 1, &message);
}

PrintUnit &PrintUnits::unit(int number) { return units_.try_emplace(number, dp_, number).first->second; }

// When one fails, the others are completed as they are destroyed.
void PrintUnits::end_all() {
    std::map<int, PrintUnit> ended = std::exchange(units_, {});
    for (auto &[number, unit] : ended) {
        unit.finish_terminal_page();
        unit.close_job();
    }
}

}  // namespace velda
