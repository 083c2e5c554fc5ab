// output.h - where a session's terminal output goes. Private to the runtime.
//
// Every byte that CRT, PRINT in terminal mode, VELDAprintf and system messages produce goes to the context's current
// sink: the process's standard output, or the innermost capture of an EXECUTE ... CAPTURING.
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
