#include "runtime/process/stop.h"

#include <cstdarg>

#include "runtime/config/message.h"
#include "runtime/process/command_level.h"
#include "runtime/process/context.h"
#include "runtime/process/output.h"
#include "runtime/process/process.h"

namespace velda {

// The destructors are the classes' key functions: one type_info each, in this library, for every library that throws.
CommandStop::~CommandStop() = default;
CommandExit::~CommandExit() = default;
CommandChain::~CommandChain() = default;

namespace {

[[noreturn]] void stop_command(DP *dp, int mode, bool with_message) {
    // Outside of any command nobody may be there to catch it: what was printed must be seen all the same.
    if (command_depth(dp) == 0) flush_output(dp);
    throw CommandStop(mode, with_message);
}

}  // namespace

void fail_command(DP *dp, int error, std::string_view message) {
    dp->last_error = error;
    if (const auto trap = current_level(dp).debug_trap) trap(dp, error, format_message(dp, message).c_str());
    print_message(dp, message);
    stop_command(dp, AbortMode, true);
}

}  // namespace velda

void VLibCSTOP_VI(DP *dp, int mode, int count, ...) {
    std::string message;
    va_list texts;
    va_start(texts, count);
    for (int i = 0; i < count; ++i) {
        if (i > 0) message += velda::VM;
        if (const VAR *text = va_arg(texts, const VAR *)) message += text->view();
    }
    va_end(texts);
    if (count > 0) velda::print_message(dp, message);
    velda::stop_command(dp, mode, count > 0);
}

void VLibCEXIT_VI(DP *, int code, int) { throw velda::CommandExit(code); }

void VLibCCHAIN_VB(DP *, const VAR *command) { throw velda::CommandChain(command->str()); }
