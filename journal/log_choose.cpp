// Which set a selection begins with.
#include "journal/log_select.h"
#include "journal/logger_context.h"

namespace velda::journal {

namespace {

// Whether set `candidate` is nearer to the start time than the one held: the latest that begins at or before it.
bool is_nearer(std::int64_t candidate_time, std::int64_t held_time, std::int64_t start) {
    if (candidate_time == 0) return false;
    return start >= held_time ? candidate_time > held_time && candidate_time <= start : candidate_time < held_time;
}

std::int32_t set_at_time(const VELDALoggerConfig &config, std::int32_t held, std::int64_t start) {
    for (std::int32_t set = 1; set <= VELDA_LOGGER_SETS; ++set)
        if (is_nearer(logger_set(config, set).timeFirst, logger_set(config, held).timeFirst, start)) held = set;
    return held;
}

// Deliberately without an exception for a last time of 0: only the reading of a record has one.
bool includes(const LogSetInfo &set, std::int64_t time) { return time >= set.timeFirst && time <= set.timeLast; }

}  // namespace

std::int32_t eldest_set(const VELDALoggerConfig &config) {
    std::int32_t eldest = 0;
    for (std::int32_t set = 1; set <= VELDA_LOGGER_SETS; ++set) {
        const LogSetInfo &candidate = logger_set(config, set);
        if (candidate.timeFirst <= 0 || candidate.recordCount <= 0) continue;
        if (eldest == 0 || candidate.timeFirst < logger_set(config, eldest).timeFirst) eldest = set;
    }
    return eldest == 0 ? static_cast<std::int32_t>(config.currentSet) : eldest;
}

const char *choose_set(const VELDALoggerConfig &config, LogSelect &select) {
    if (select.set == SetAuto && select.startTime <= 0) return "Start time must be specified when set=auto";
    if (select.set == SetAuto || select.set == SetNotChosen) select.set = static_cast<std::int32_t>(config.currentSet);
    if (select.startTime > 0) {
        select.set = set_at_time(config, select.set, select.startTime);
        if (!includes(logger_set(config, select.set), select.startTime))
            return "No log set could be found which includes the specified start time";
    }
    select.setFirstTime = logger_set(config, select.set).timeFirst;
    if ((select.flags & (SelectEos | SelectEof | SelectWait)) == 0) select.flags |= SelectEof;
    return nullptr;
}

}  // namespace velda::journal
