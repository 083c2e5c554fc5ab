// stop.h - STOP, ABORT, EXIT and CHAIN as C++ exceptions, and the one place that catches them.
//
// They are thrown by VLibCSTOP_VI, VLibCEXIT_VI and VLibCCHAIN_VB, pass through every subroutine of the command, and
// are caught at the command's boundary only (velda_run and the command levels of EXECUTE), where the exit handlers run
// once.
#pragma once

#include <string>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

// STOP (mode 1) or ABORT (mode 2). The message, if any, has been printed when this is thrown.
class VELDA_EXPORT CommandStop {
  public:
    CommandStop(int mode, bool with_message) : mode(mode), with_message(with_message) {}
    virtual ~CommandStop();
    int mode;
    bool with_message;
};

// EXIT(code): ends the process's command with this code.
class VELDA_EXPORT CommandExit {
  public:
    explicit CommandExit(int code) : code(code) {}
    virtual ~CommandExit();
    int code;
};

// CHAIN: this command takes the place of the current one.
class VELDA_EXPORT CommandChain {
  public:
    explicit CommandChain(std::string command) : command(std::move(command)) {}
    virtual ~CommandChain();
    std::string command;
};

inline constexpr int StopMode = 1;
inline constexpr int AbortMode = 2;

// How the runtime itself ends a command, for a failure that the logic gave no way to handle: SYSTEM(0) becomes `error`,
// the debug trap sees the failure first, then the message (a key and its parameters divided by VM, or plain text) is
// printed and the command aborts.
[[noreturn]] void fail_command(DP *dp, int error, std::string_view message);

}  // namespace velda
