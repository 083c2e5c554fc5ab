// COPY to the terminal or the printer: records as numbered lines, page by page.
#include <algorithm>
#include <optional>
#include <string>

#include "fileutil/copy_command.h"
#include "fileutil/fileutil.h"

using namespace velda;
using namespace velda::copy;

namespace {

constexpr int LeastNumberWidth = 3;
constexpr int SmallestPiece = 2;  // a pair of hexadecimal digits
constexpr int ReaderQuit = -1;    // the line count once the reader had enough

// Replies to the pause at the end of a page that end the display.
constexpr std::string_view QuitReplies[] = {"Q", "q", "\x05", "\x18"};

// The conversion that makes an attribute printable.
constexpr const char *HexadecimalForm = "MX";
constexpr const char *PrintableForm = "MCP.";

class RecordDisplay {
  public:
    explicit RecordDisplay(const CopyJob &job) : job_(job) {}

    bool reader_quit() const { return line_count_ == ReaderQuit; }

    void show(const VAR &key, const VAR &record) {
        if (shown_++ > 0 && job_.has('F')) new_page();
        print_line(key_line(key));
        show_attributes(record);
        if (!reader_quit()) print_line("");
    }

    void clear_screen() const {
        if (!job_.has('P')) velda::clear_screen();
    }

  private:
    void new_page() {
        clear_screen();
        velda::new_page(job_.print_unit);
        line_count_ = 0;
    }

    VAR key_line(const VAR &key) const {
        if (job_.has('H')) return " ";
        return job_.has('S') ? key : cat("    ", key);
    }

    void show_attributes(const VAR &record) {
        const int attributes = dcount(record, AM);
        const int number_width = std::max(LeastNumberWidth, static_cast<int>(std::to_string(attributes).size()));
        const VAR number_mask = cat("R%", number_width);
        const VAR continuation = job_.has('S') ? VAR(" ") : space(number_width + 1);
        const char *form = job_.has('X') ? HexadecimalForm : PrintableForm;
        for (int number = 1; number <= attributes && !reader_quit(); ++number) {
            const VAR start = job_.has('S') ? VAR("") : cat(format(number, number_mask), " ");
            show_attribute(start, continuation, oconv(record(number), form));
        }
    }

    // An attribute in pieces of an even length, so that no pair of hexadecimal digits is torn.
    void show_attribute(const VAR &start, const VAR &continuation, const VAR &text) {
        int piece_length = static_cast<int>(screen_width() - 1 - continuation.size());
        piece_length = std::max(SmallestPiece, piece_length - piece_length % 2);
        const int length = static_cast<int>(text.size());
        print_line(cat(start, text.substring(1, piece_length)));
        for (int at = piece_length + 1; at <= length && !reader_quit(); at += piece_length)
            print_line(cat(continuation, text.substring(at, piece_length)));
    }

    // Prints a line, with a pause when the page is full.
    void print_line(const VAR &line) {
        const bool page_full = ++line_count_ == screen_depth();
        if (page_full) line_count_ = 0;
        if (!page_full || !pauses()) {
            print_line_on(job_.print_unit, line);
            return;
        }
        print_on(job_.print_unit, line);
        if (!reader_wants_more()) {
            print_line_on(job_.print_unit);
            line_count_ = ReaderQuit;
        }
        clear_screen();
    }

    // Output that goes to a file or a pipe has no reader, unless its replies were stacked.
    bool pauses() const { return !job_.has('N') && !job_.has('P') && (output_is_terminal() || stacked_data()); }

    static bool reader_wants_more() {
        const EchoOff echo_off;
        VAR reply;
        input(reply, {.length = VELDA_INPUT_ONE_KEY, .flags = VELDA_INPUT_NO_PROMPT | VELDA_INPUT_NO_NEWLINE});
        return std::ranges::find(QuitReplies, reply.view()) == std::end(QuitReplies);
    }

    const CopyJob &job_;
    int line_count_ = 0;
    int shown_ = 0;
};

}  // namespace

void copy::display_records(CopyJob &job) {
    RecordDisplay display(job);
    if (job.has('P')) printer_on(job.print_unit);
    display.clear_screen();
    VAR key;
    while (!display.reader_quit() && job.SourceList.next(key)) {
        key = frame::without_quotes(key);
        std::optional<VAR> record = job.SourceFile.read(key);
        if (!record) {
            job.NotFound.append(key);
            continue;
        }
        if (job.compressed) edit_expand(*record);
        display.show(key, *record);
    }
    printer_off(job.print_unit);
}
