#include "runtime/process/output.h"

#include <unistd.h>

#include <cstdio>
#include <utility>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/base/write_fully.h"
#include "runtime/config/message.h"
#include "runtime/process/command_level.h"
#include "runtime/process/context.h"

namespace velda {
namespace {

constexpr std::size_t BufferBytes = 64 * 1024;

struct OutputState {
    std::vector<std::string *> captures;  // innermost last
    std::string pending;                  // for standard output, not yet written
    int error = 0;                        // first failure since the last report; output is dropped from there on
    bool line_buffered = isatty(STDOUT_FILENO);

    ~OutputState() { send(); }

    void send() {
        if (error == 0) error = write_fully(STDOUT_FILENO, pending);
        pending.clear();
    }
};

OutputState &output_of(DP *dp) { return dp->state<OutputState>(); }

}  // namespace

void write_output(DP *dp, std::string_view bytes) {
    OutputState &output = output_of(dp);
    if (!output.captures.empty()) {
        output.captures.back()->append(bytes);
        return;
    }
    if (output.error != 0) return;
    output.pending.append(bytes);
    const bool line_complete = output.line_buffered && bytes.find('\n') != std::string_view::npos;
    if (line_complete || output.pending.size() >= BufferBytes) output.send();
}

void flush_output(DP *dp) { output_of(dp).send(); }

bool output_is_terminal(DP *dp) {
    const OutputState &output = output_of(dp);
    return output.captures.empty() && output.line_buffered;
}

bool output_is_captured(DP *dp) { return !output_of(dp).captures.empty(); }

void print_message(DP *dp, std::string_view message) {
    note_message(dp, message);
    const std::string text = format_message(dp, message);
    write_output(dp, text.ends_with(' ') ? text : text + "\n");
}

bool finish_output(DP *dp) {
    OutputState &output = output_of(dp);
    output.send();
    if (output.error == 0) return true;
    const Error error = system_error(std::exchange(output.error, 0), "cannot write", "standard output");
    std::fprintf(stderr, "%s\n", error.message.c_str());
    return false;
}

CaptureOutput::CaptureOutput(DP *dp, std::string &target) : dp_(dp) { output_of(dp).captures.push_back(&target); }
CaptureOutput::~CaptureOutput() { output_of(dp_).captures.pop_back(); }

}  // namespace velda
