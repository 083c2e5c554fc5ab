#include "runtime/terminal/input.h"

#include <algorithm>

#include "runtime/process/context.h"
#include "runtime/process/data_stack.h"
#include "runtime/process/output.h"
#include "runtime/process/process.h"
#include "runtime/terminal/device.h"
#include "runtime/terminal/line_editor.h"
#include "runtime/terminal/session.h"

namespace velda {
namespace {

constexpr unsigned char Escape = 0x1B;
constexpr int MostReadsPastEnd = 20;
constexpr int RestOfKeyMilliseconds = 20;

std::string cut(std::string text, int length) {
    if (length >= 0) text.resize(std::min(text.size(), static_cast<std::size_t>(std::max(length, 1))));
    return text;
}

// What the reader of a line shows goes to the screen, also while the output of a program is captured.
void show(DP *dp, std::string_view text) {
    if (text.empty()) return;
    if (output_is_terminal(dp)) {
        write_output(dp, text);
        flush_output(dp);
    } else {
        flush_output(dp);
        write_to_terminal(text);
    }
}

void show_prompt(DP *dp, const LineRequest &request) {
    if (request.prompt_shown) write_output(dp, terminal_session(dp).prompt);
}

std::optional<std::string> take_stacked_line(DP *dp) {
    auto &lines = dp->state<DataStack>().lines;
    if (lines.empty()) return std::nullopt;
    std::string line = std::move(lines.front());
    lines.pop_front();
    return line;
}

// A stacked reply looks on the screen as if it had been typed.
LineRead reply_from_stack(DP *dp, const LineRequest &request, std::string line) {
    line = cut(std::move(line), request.length);
    if (terminal_session(dp).echo) {
        write_output(dp, line);
        if (request.newline_shown) write_output(dp, "\n");
    }
    return {LineOutcome::Line, std::move(line)};
}

// A wait for the next key of a reply of which `shown` stands on the screen.
KeyWait wait_of(DP *dp, const LineRequest &request, const std::string &shown = "") {
    KeyWait wait{.milliseconds = request.idle_milliseconds};
    if (request.prompt_shown) wait.line = terminal_session(dp).prompt;
    if (terminal_session(dp).echo) wait.line += shown;
    return wait;
}

// One line of a pipe or file answers one INPUT: what exceeds the length is dropped with the line, so that a script's
// lines stay in step with its questions. A last line without line feed counts.
LineRead read_plain_line(DP *dp, const LineRequest &request) {
    std::string text;
    while (true) {
        const KeyRead key = read_key(dp, {.milliseconds = request.idle_milliseconds});
        if (key.outcome == KeyOutcome::Timeout) return {LineOutcome::Timeout, text};
        if (key.outcome == KeyOutcome::End && text.empty()) return {LineOutcome::End, {}};
        if (key.outcome == KeyOutcome::End || key.byte == '\n') break;
        text += static_cast<char>(key.byte);
    }
    if (text.ends_with('\r')) text.pop_back();
    return {LineOutcome::Line, cut(std::move(text), request.length)};
}

// A function key or a character of several bytes is one key: what it sent after its first byte is no next reply.
void drop_rest_of_key(DP *dp, unsigned char first) {
    if (first != Escape && first < 0x80) return;
    while (typed_ahead() > 0) read_key(dp, {.milliseconds = RestOfKeyMilliseconds});
}

LineRead read_single_key(DP *dp, const LineRequest &request) {
    const KeyRead key = read_key(dp, wait_of(dp, request));
    if (key.outcome == KeyOutcome::Timeout) return {LineOutcome::Timeout, {}};
    if (key.outcome == KeyOutcome::End) return {LineOutcome::End, {}};
    drop_rest_of_key(dp, key.byte);
    const bool is_return = key.byte == '\r' || key.byte == '\n';
    const std::string text = is_return ? "" : std::string(1, static_cast<char>(key.byte));
    if (terminal_session(dp).echo && !is_return) show(dp, display_of(key.byte));
    if (request.newline_shown) show(dp, "\n");
    return {LineOutcome::Line, text};
}

LineRead read_edited_line(DP *dp, const LineRequest &request) {
    LineEditor editor(editing_keys(), request.length);
    LineEditor::State state = LineEditor::State::More;
    while (state == LineEditor::State::More) {
        const KeyRead key = read_key(dp, wait_of(dp, request, editor.display()));
        if (key.outcome == KeyOutcome::Timeout) return {LineOutcome::Timeout, editor.text()};
        if (key.outcome == KeyOutcome::End) return {LineOutcome::End, {}};
        std::string shown;
        state = editor.feed(key.byte, shown);
        if (terminal_session(dp).echo) show(dp, shown);
    }
    if (request.newline_shown) show(dp, "\n");
    return {state == LineEditor::State::End ? LineOutcome::End : LineOutcome::Line, editor.text()};
}

LineRead read_from_terminal(DP *dp, const LineRequest &request) {
    enter_session_mode();  // the editing keys are known from here on
    return request.length == SingleKey ? read_single_key(dp, request) : read_edited_line(dp, request);
}

// Replaces what stands on the last line of the screen, and leaves the cursor where it was.
void write_foot(DP *dp, std::string_view message) {
    const auto description = terminal_description();
    std::string bytes = description->sequence(Capability::SaveCursor);
    bytes += description->move_to(0, screen_lines() - 1);
    bytes += message;
    bytes += description->sequence(Capability::ClearToEndOfLine);
    bytes += description->sequence(Capability::RestoreCursor);
    write_output(dp, bytes);
}

bool has_foot(DP *dp) {
    const auto description = terminal_description();
    return output_is_terminal(dp) && !description->sequence(Capability::SaveCursor).empty() &&
           !description->sequence(Capability::RestoreCursor).empty() && !description->move_to(0, 0).empty();
}

void clear_foot(DP *dp) {
    if (!terminal_session(dp).foot_message_shown) return;
    terminal_session(dp).foot_message_shown = false;
    write_foot(dp, "");
}

LineRead read_unseen_line(DP *dp, const LineRequest &request, std::string_view ends) {
    enter_session_mode();
    LineEditor editor(editing_keys(), request.length);
    LineEditor::State state = LineEditor::State::More;
    while (state == LineEditor::State::More) {
        const KeyRead key = read_key(dp, {});
        if (key.outcome == KeyOutcome::End) return {LineOutcome::End, {}};
        if (ends.find(static_cast<char>(key.byte)) != ends.npos) break;
        std::string not_shown;
        state = editor.feed(key.byte, not_shown);
    }
    return {state == LineEditor::State::End ? LineOutcome::End : LineOutcome::Line, editor.text()};
}

// The one place that counts reads past the end. To go on without an answer, as a pause between pages does, is no asking
// for ever: single keys do not count.
LineRead counted(DP *dp, const LineRequest &request, LineRead read) {
    if (read.outcome != LineOutcome::End)
        note_input(dp);
    else if (request.length != SingleKey)
        note_end_of_input(dp);
    return read;
}

}  // namespace

LineRead read_line(DP *dp, const LineRequest &request) {
    show_prompt(dp, request);
    if (auto line = take_stacked_line(dp)) return counted(dp, request, reply_from_stack(dp, request, std::move(*line)));
    LineRead read = input_is_terminal() ? read_from_terminal(dp, request) : read_plain_line(dp, request);
    clear_foot(dp);
    return counted(dp, request, std::move(read));
}

LineRead read_quietly(DP *dp, int limit, std::string_view ends) {
    const LineRequest request{.length = limit, .prompt_shown = false, .newline_shown = false};
    return counted(dp, request,
                   input_is_terminal() ? read_unseen_line(dp, request, ends) : read_plain_line(dp, request));
}

bool stacked_data_waits(DP *dp) { return !dp->state<DataStack>().lines.empty(); }

int characters_waiting(DP *dp) {
    std::size_t count = 0;
    for (const std::string &line : dp->state<DataStack>().lines) count += line.size() + 1;
    return static_cast<int>(count) + typed_ahead();
}

void note_end_of_input(DP *dp) {
    TerminalSession &session = terminal_session(dp);
    if (++session.reads_past_end <= MostReadsPastEnd) return;
    session.reads_past_end = 0;
    const VAR message("END_OF_INPUT");
    VLibCSTOP_VI(dp, 2, 1, &message);
}

void note_input(DP *dp) { terminal_session(dp).reads_past_end = 0; }

void show_at_foot(DP *dp, std::string_view message) {
    if (has_foot(dp)) {
        write_foot(dp, message);
        terminal_session(dp).foot_message_shown = true;
    } else {
        write_output(dp, std::string(message) + "\n");
    }
    flush_output(dp);
}

}  // namespace velda
