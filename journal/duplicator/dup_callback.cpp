// What a run does at each wait and between records: it looks whether it is to stop, keeps its output current, and shows
// what it is doing.
#include <cstdarg>

#include "journal/duplicator/duplicator.h"

namespace velda::journal {

namespace {

void stop_when_killed(DP *dp, DupContext &context) {
    const DupStatusSlot &slot = *context.slot;
    if (slot.killerPid == 0 || slot.killerPort == 0 || context.transfer.isKilled) return;
    context.transfer.isKilled = true;
    DupReport(dp, nullptr, nullptr, Severity::Status, "Process killed by operator: Process id %d from port %d",
              static_cast<int>(slot.killerPid), static_cast<int>(slot.killerPort));
    DupExit(dp, ExitKilled);
}

// An operator's order comes with a signal, which may be seen first.
void end_by_signal(DP *dp, void *) {
    stop_when_killed(dp, dup_context(dp));
    DupExit(dp, ExitSignal);
}

// A program that reads by itself, without a run, has a trap of its own or none.
void test_signals(DP *dp, DupContext &context) {
    if (context.transfer.isKilled) return;
    const bool is_run = context.slot != &context.unlistedSlot;
    if (is_run && velda_session_end_signal(dp) != 0) return DupExit(dp, ExitSignal);
    if (is_run && !context.transfer.hasTrap) {
        VLibSignalTrap(dp, end_by_signal, nullptr);
        context.transfer.hasTrap = true;
    }
    if (!context.exiting) VLibSignalTest(dp);
}

// What was read so far gets out before a wait: partly filled blocks, and updates that wait for more of them.
void flush_before_wait(DP *dp, DupContext &context) {
    apply_pending(dp);
    if (!context.output || context.dryRun || !(context.output->deviceType & StreamDevices)) return;
    DupFlushBlock(dp, false);
    DupReadMilestone(dp, context);
}

void show(DP *dp, DupContext &context, const char *text) {
    context.transfer.savedStatusText = set_status_text(dp, text);
}

void report_input_error(DP *dp, const DupContext &context, va_list arguments) {
    const char *const format = va_arg(arguments, const char *);
    char message[1024];
    std::vsnprintf(message, sizeof message, format, arguments);
    DupReport(dp, context.input, nullptr, Severity::Error, "%s", message);
}

}  // namespace

void DupCallback(DP *dp, int code, ...) {
    DupContext &context = dup_context(dp);
    stop_when_killed(dp, context);
    test_signals(dp, context);
    switch (code) {
        case RetryBegins:
            flush_before_wait(dp, context);
            return show(dp, context, "SLEEPing: Retrying a READ");
        case WaitBegins:
            flush_before_wait(dp, context);
            return show(dp, context, "SLEEPing: Waiting INPUT data");
        case BlockReadBegins:
            return show(dp, context, "READING from serial device or TTY");
        case PromptBegins:
            apply_pending(dp);
            return show(dp, context, "PROMPT user, awaiting reply");
        case RetryEnds:
        case WaitEnds:
        case BlockReadEnds:
        case PromptEnds:
            set_status_text(dp, context.transfer.savedStatusText);
            return;
        case ErrorText: {
            va_list arguments;
            va_start(arguments, code);
            report_input_error(dp, context, arguments);
            va_end(arguments);
            return;
        }
        default:
            return;
    }
}

}  // namespace velda::journal
