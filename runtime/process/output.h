// output.h - where a session's terminal output goes. Private to the runtime.
//
// Every byte that CRT, PRINT in terminal mode, VELDAprintf and system messages produce goes to the context's current
// sink: the process's standard output, or the innermost capture of an EXECUTE ... CAPTURING.
//
// Standard output is buffered; on a terminal each completed line is sent at once. When it cannot be written (disk full,
// reader gone) the rest is dropped, the work goes on, and the end of the command reports it: a message on standard
// error and an exit code that is not 0.
#pragma once

#include <string>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

// Writes terminal output to the innermost sink. Standard output is buffered; flush_output() sends it.
void write_output(DP *dp, std::string_view bytes);
void flush_output(DP *dp);

// True when output goes to a terminal now, not to a file, a pipe or a capture: paging and prompts make sense.
bool output_is_terminal(DP *dp);

// True while output is captured: a started program's output must be brought to write_output().
bool output_is_captured(DP *dp);

// Prints a system message (a key and its parameters divided by VM, or plain text) as a line of terminal output, and
// keeps it for the RETURNING of the EXECUTE that runs this command. A text that ends in a blank is a prompt: the cursor
// stays behind it.
void print_message(DP *dp, std::string_view message);

// Sends what is buffered. When standard output could not be written since the last call, says so on standard error and
// gives false.
bool finish_output(DP *dp);

// While it lives, the context's terminal output is appended to `target` (line feeds as written).
class CaptureOutput {
  public:
    CaptureOutput(DP *dp, std::string &target);
    ~CaptureOutput();
    CaptureOutput(const CaptureOutput &) = delete;
    CaptureOutput &operator=(const CaptureOutput &) = delete;

  private:
    DP *dp_;
};

}  // namespace velda
