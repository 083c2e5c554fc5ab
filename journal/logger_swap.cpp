// Which set is written, and whether: status, switch, truncation.
#include <cerrno>
#include <cstdio>

#include "journal/logger_admin.h"

namespace velda::journal {

namespace {

// The middle one is in lower case on purpose.
constexpr const char *StatusNames[] = {"INACTIVE", "active", "SUSPENDED"};

enum SetChoice { NoSet = 0, EldestSet = -1, NextSet = -2 };

bool is_set(int64_t set) { return set >= 1 && set <= VELDA_LOGGER_SETS; }

int eldest_set(const VELDALoggerConfig &config) {
    int eldest = static_cast<int>(config.currentSet);
    for (int set = 1; set <= VELDA_LOGGER_SETS; ++set) {
        const int64_t time = config.sets[set - 1].timeFirst;
        if (time > 0 && (!is_set(eldest) || time < config.sets[eldest - 1].timeFirst)) eldest = set;
    }
    return eldest;
}

int next_set(DP *dp, const VELDALoggerConfig &config) {
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH);
    int set = static_cast<int>(config.currentSet);
    for (int tries = 0; tries < VELDA_LOGGER_SETS; ++tries) {
        set = set % VELDA_LOGGER_SETS + 1;
        if (LoggerCheckSet(dp, set, true) == 0) break;
    }
    return set;
}

int chosen_set(DP *dp, const VELDALoggerConfig &config, int choice) {
    if (choice == EldestSet) return eldest_set(config);
    return choice == NextSet ? next_set(dp, config) : choice;
}

void log_change(DP *dp, int set) { VediLoggerError(dp, 0, "Log set changed to %d", set); }

// A set that cannot be ended, since its file is gone, is left all the same: the switch is the way out.
void close_set(DP *dp, const VELDALoggerConfig &config) {
    constexpr int Failure = 2;
    if (VediLoggerMisc(dp, VELDA_LOGGER_CLOSE_SET) != 0)
        VediLoggerError(dp, Failure, "Log set %d is left without its end: %s", static_cast<int>(config.currentSet),
                        velda_logger_error(dp));
}

int switch_off(DP *dp, VELDALoggerConfig &config) {
    VediLoggerMisc(dp, VELDA_LOGGER_BEGIN_CHANGE);
    velda_logger_hold_writers(dp);
    close_set(dp, config);
    velda_logger_release_writers(dp);
    VELDALoggerChangeStatus(dp, VELDA_LOGGER_INACTIVE);
    VediLoggerMisc(dp, VELDA_LOGGER_TABLE_LOCK, VELDA_LOGGER_TAKE);
    ++config.updateCount;
    config.currentSet = 0;
    VediLoggerMisc(dp, VELDA_LOGGER_TABLE_LOCK, VELDA_LOGGER_LEAVE);
    LoggerSaveConfig(dp);
    VediLoggerMisc(dp, VELDA_LOGGER_END_CHANGE);
    log_change(dp, 0);
    return 0;
}

void store_switch(DP *dp, VELDALoggerConfig &config, int set, int64_t now) {
    config.lastCheckpoint = -1;
    config.currentSet = static_cast<uint32_t>(set);
    config.switchedTime = static_cast<uint64_t>(now);
    config.switchedPort = static_cast<uint32_t>(VELDAGetPortNumber(dp));
    std::snprintf(config.switchedUser, sizeof config.switchedUser, "%s", system_number(1015).str().c_str());
}

// Writers are held by the suspended status while the set changes.
void switch_to(DP *dp, VELDALoggerConfig &config, int set) {
    velda_logger_hold_writers(dp);
    VediLoggerMisc(dp, VELDA_LOGGER_PUBLISH);
    close_set(dp, config);
    VediLoggerMisc(dp, VELDA_LOGGER_TABLE_LOCK, VELDA_LOGGER_TAKE);
    const int64_t now = velda_logger_next_time(dp);
    store_switch(dp, config, set, now);
    LoggerResetSet(dp, set, now);
    LoggerSaveConfig(dp);
    velda_logger_release_writers(dp);
    VediLoggerMisc(dp, VELDA_LOGGER_END_CHANGE);
    VediLoggerMisc(dp, VELDA_LOGGER_TABLE_LOCK, VELDA_LOGGER_LEAVE);
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerChangeStatus(DP *dp, int32_t status) {
    if (!define_logger(dp)) return ENOENT;
    VELDALoggerConfig &config = *logger_context(dp).config;
    if (status < VELDA_LOGGER_INACTIVE || status > VELDA_LOGGER_SUSPENDED) {
        tell(dp, "%s: Invalid status value passed\n");
        return EINVAL;
    }
    const int set = static_cast<int>(config.currentSet);
    if (!is_set(set)) {
        tell(dp, "%s: Unable to change status while active set is switched to %d\n", set);
        return EINVAL;
    }
    if (status == VELDA_LOGGER_ACTIVE)
        if (const int error = LoggerCheckSet(dp, set, false)) return error;
    VediLoggerMisc(dp, VELDA_LOGGER_BEGIN_CHANGE);
    velda_logger_set_status(dp, status);
    LoggerSaveConfig(dp);
    VediLoggerMisc(dp, VELDA_LOGGER_END_CHANGE);
    VediLoggerError(dp, 0, "Status of logger set to %s (current log set %d)", StatusNames[status], set);
    return 0;
}

int VELDALoggerSwapLog(DP *dp, int32_t choice) {
    constexpr int NoJournal = -2;
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) return NoJournal;
    if (choice == NoSet) return switch_off(dp, *context.config);
    // Two administrators who ask for the next set at once get two sets. The check may ask the operator, so it is made
    // before the lock is taken, and made again when another switch came in between.
    for (;;) {
        const uint32_t current = context.config->currentSet;
        const int set = chosen_set(dp, *context.config, choice);
        if (const int error = LoggerCheckSet(dp, set, false)) return error;
        VediLoggerMisc(dp, VELDA_LOGGER_BEGIN_CHANGE);
        if (context.config->currentSet == current || choice > NoSet) {
            switch_to(dp, *context.config, set);
            log_change(dp, set);
            return 0;
        }
        VediLoggerMisc(dp, VELDA_LOGGER_END_CHANGE);
    }
}

int VELDALoggerTruncateLog(DP *dp, int32_t set) {
    if (!define_logger(dp)) return ENOENT;
    const VELDALoggerConfig &config = *logger_context(dp).config;
    if (const int error = LoggerCheckSet(dp, set, false)) return error;
    const ChangeLock lock(dp);
    if (config.currentSet == static_cast<uint32_t>(set) && config.status != VELDA_LOGGER_INACTIVE) {
        VELDAfprintf(dp, stderr, "Error! Cannot truncate an active log set\n");
        return EINVAL;
    }
    LoggerResetSet(dp, set, velda_logger_next_time(dp));
    LoggerSaveConfig(dp);
    VediLoggerError(dp, 0, "Log set %d truncated", set);
    return 0;
}
