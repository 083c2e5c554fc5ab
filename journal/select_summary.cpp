// The summary of a specification that VERBOSE asks for, on standard error.
#include <cstdio>

#include "journal/select_parser.h"

namespace velda::journal {

namespace {

// Prints a line of the summary.
template <class... Values>
void line(DP *dp, const char *format, const Values &...values) {
    VELDAfprintf(dp, stderr, format, values...);
}

void show_stream(DP *dp, const LogSelect &select) {
    if (select.flags & SelectNoFlush) line(dp, "    Flushes to device will be suppressed for TRANSACTION boundaries\n");
    const std::string size = select.blockMax > 0 ? std::to_string(select.blockMax) + " blocks" : "unknown";
    line(dp, "    Using block size of %d bytes , device size is %s\n", select.blockSize, size.c_str());
}

void show_milestone(DP *dp, const LogSelect &select, bool is_output, const char *direction) {
    if (is_output)
        line(dp, "Notice: %s SOCKET will update milestone file '%s'\n", direction, select.milestoneFile.c_str());
    else
        line(dp, "Notice: %s SOCKET, sending milestone status to sender\n", direction);
}

// When reading ends. Deliberate: it is the previous specification that is looked at, none being before the first, so
// the input tells this only through the output's summary.
void show_ending(DP *dp, std::uint32_t flags, std::int32_t timeout) {
    const bool waits_for_switch = (flags & SelectEos) && (flags & SelectWait);
    if (waits_for_switch && timeout > 0)
        line(dp, "\n    Process waits for %d secs. or until set switched, or terminated by operator\n\n", timeout);
    else if (waits_for_switch)
        line(dp, "\n    Process waits indefinitely or until set switched, or terminated by operator\n\n");
    else if (flags & SelectEos)
        line(dp, "\n    Process continues until end of set\n\n");
    else if (flags & SelectEof)
        line(dp, "\n    Process continues until end of all sets\n\n");
    else if (timeout > 0)
        line(dp, "\n    Process waits for %d secs. or terminated by operator\n\n", timeout);
    else
        line(dp, "\n    Process waits indefinitely or terminated by operator\n\n");
}

void show(DP *dp, const LogSelect &select, bool is_output, bool milestone_given) {
    const char *const direction = is_output ? "OUTPUT to" : "INPUT from";
    if (select.deviceType == Serial || select.deviceType == Tty) show_stream(dp, select);
    if (select.deviceType == LogSetDevice)
        line(dp, "Notice: %s set %d , first entry %s\n", direction, select.set,
             readable_time(dp, select.setFirstTime).c_str());
    if (select.deviceType == Database) line(dp, "Notice: %s DATABASE\n", direction);
    if (select.deviceType == Database && (select.flags & SelectNoTrans))
        line(dp, "    All transaction boundaries will be ignored\n");
    for (const RenamePair &pair : select.renames)
        line(dp, "    Renaming file/directory '%s' to '%s'\n", pair.from.c_str(), pair.to.c_str());
    if (milestone_given && (is_output || select.sendMilestone)) show_milestone(dp, select, is_output, direction);
    if (select.startTime != 0)
        line(dp, "    Records must be on or AFTER  %s\n", readable_time(dp, select.startTime).c_str());
    if (select.endTime != 0)
        line(dp, "    Records must be on or BEFORE %s\n", readable_time(dp, select.endTime).c_str());
}

}  // namespace

void show_summary(DP *dp, const LogSelect &select, bool is_output, bool milestone_given) {
    SpecSettings &settings = spec_settings();
    const std::uint32_t flags = settings.previous_flags.exchange(select.flags);
    const std::int32_t timeout = settings.previous_timeout.exchange(select.timeout);
    if (!settings.verbose) return;
    show(dp, select, is_output, milestone_given);
    if (select.deviceType != Database && !settings.ending_shown.exchange(true)) show_ending(dp, flags, timeout);
}

std::string readable_time(DP *dp, std::int64_t stamp) {
    int day = 0, seconds = 0;
    VELDAConvertUnixTimeToVELDA(dp, stamp, &day, &seconds);
    return oconv(seconds, "MTS").str() + " " + oconv(day, "D4").str();
}

}  // namespace velda::journal
