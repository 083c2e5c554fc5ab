// The end of a run: what still waits, the statistics, the end of the output stream, the slot.
#include <cinttypes>

#include "journal/duplicator/dup_batch.h"
#include "journal/duplicator/dup_dry_run.h"
#include "journal/duplicator/dup_monitor.h"
#include "journal/duplicator/duplicator.h"
#include "journal/journal.h"

namespace velda::journal {

namespace {

constexpr int OperatorSeverity = 256;  // of entries in the administration log that tell of a run

struct RunTimes {
    double user_seconds = 0;
    double system_seconds = 0;
    int minutes = 0;
    double seconds = 0;
};

RunTimes times_of_run(DP *dp, const DupContext &context) {
    RunTimes times;
    velda_process_times(dp, &times.user_seconds, &times.system_seconds);
    times.user_seconds -= context.startUserSeconds;
    times.system_seconds -= context.startSystemSeconds;
    const std::int64_t elapsed = steady_milliseconds() - context.startTicks;
    times.minutes = static_cast<int>(elapsed / 60000);
    times.seconds = static_cast<double>(elapsed % 60000) / 1000;
    return times;
}

void log_statistics(DP *dp, const DupContext &context, const RunTimes &times) {
    const DupStatusSlot &slot = *context.slot;
    VediLoggerError(dp, OperatorSeverity,
                    "Termination Statistics: usr %.2lf , sys %.2lf , elapsed %dm%.2lf\n"
                    "\t%d records read from current log set number %d\n"
                    "\tINPUT : %" PRId64 " records , %" PRId64 " blocks , %" PRId64
                    " record bytes , %d errors\n"
                    "\tOUTPUT: %" PRId64 " records , %" PRId64 " blocks , %" PRId64 " bytes , %d errors",
                    times.user_seconds, times.system_seconds, times.minutes, times.seconds,
                    static_cast<int>(context.recordsFromSet), static_cast<int>(context.lastSet), slot.inputRecords,
                    slot.inputBlocks, slot.inputBytes, static_cast<int>(slot.inputErrors), slot.outputRecords,
                    slot.outputBlocks, slot.outputBytes, static_cast<int>(slot.outputErrors));
}

void report_open_transactions(DP *dp, const DupContext &context) {
    for (const DupTransaction &transaction : context.transactions) {
        if (transaction.count == 0) continue;
        DupReport(dp, nullptr, nullptr, Severity::Error,
                  "TRANSACTION violation: vlogdup closing and there are still %d outstanding updates in a transaction "
                  "for process id %d",
                  static_cast<int>(transaction.count), static_cast<int>(transaction.pid));
    }
}

void report_statistics(DP *dp, const DupContext &context, const RunTimes &times, int code) {
    const DupStatusSlot &slot = *context.slot;
    DupReport(dp, nullptr, nullptr, Severity::Status,
              "Termination Statistics: usr %.2lf , sys %.2lf , elapsed %dm%.2lf\n"
              "    INPUT : %" PRId64 " records , %" PRId64 " blocks , %" PRId64
              " record bytes , %d errors\n"
              "    OUTPUT: %" PRId64 " records , %" PRId64 " blocks , %" PRId64 "\tbytes ,\t%d errors",
              times.user_seconds, times.system_seconds, times.minutes, times.seconds, slot.inputRecords,
              slot.inputBlocks, slot.inputBytes, static_cast<int>(slot.inputErrors), slot.outputRecords,
              slot.outputBlocks, slot.outputBytes, static_cast<int>(slot.outputErrors));
    DupReport(dp, nullptr, nullptr, Severity::Status,
              "Program terminated. Exit code is %d, Exit Termination Reason = %#.8x", code, context.terminationReason);
}

void release_all(DP *dp, DupContext &context) {
    VELDALoggerSelectEnd(dp, &context.input);
    VELDALoggerSelectEnd(dp, &context.output);
    context.monitor.reset();
    VELDALoggerStatusDelete(dp);
    context.slot = &context.unlistedSlot;
    context.watch = &context.unlistedWatch;
    VRunFileIOClose(dp, context.logFile);
    context.logFile = nullptr;
    context.errorFile.reset();
    close_all_cached(dp, context);
    VediLoggerMisc(dp, VELDA_LOGGER_PUBLISH);
    VediLoggerMisc(dp, VELDA_LOGGER_END_CHANGE);
}

}  // namespace

void DupExit(DP *dp, int code) {
    DupContext &context = dup_context(dp);
    if (context.exiting) return;
    apply_pending(dp);  // may exceed the limit of errors, and then the run ends with that inside this call
    if (context.exiting) return;
    context.exiting = true;
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH);
    const RunTimes times = times_of_run(dp, context);
    log_statistics(dp, context, times);
    if (context.input && context.output) report_open_transactions(dp, context);
    if (context.output && !context.dryRun && (context.output->deviceType & StreamDevices))
        end_stream(dp, code != ExitKilled && code != ExitSignal);
    if (context.monitor) context.monitor->finish(code);
    if (context.dryRun && context.initialised) context.dryRun->print(dp);
    if (context.initialised) report_statistics(dp, context, times, code);
    release_all(dp, context);
    if (!context.staysAfterExit) exit_command(code);
}

}  // namespace velda::journal
