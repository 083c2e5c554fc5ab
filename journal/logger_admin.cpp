// Settings of the journal, and the order to a duplicator to stop.
#include "journal/logger_admin.h"

#include <cerrno>
#include <cstdio>

namespace velda::journal {

namespace {

int set_flag(DP *dp, uint32_t VELDALoggerConfig::*field, int32_t flag, const char *format) {
    if (!define_logger(dp)) return ENOENT;
    logger_context(dp).config->*field = static_cast<uint32_t>(flag);
    LoggerSaveConfig(dp);
    VediLoggerError(dp, 0, format, flag != 0 ? "ON" : "OFF");
    return 0;
}

// The line shows what was there before.
int set_interval(DP *dp, uint32_t VELDALoggerConfig::*field, int32_t value, const char *format) {
    if (value < 1) return 0;
    if (!define_logger(dp)) return ENOENT;
    VELDALoggerConfig &config = *logger_context(dp).config;
    VediLoggerError(dp, 0, format, static_cast<int>(config.*field), value);
    config.*field = static_cast<uint32_t>(value);
    LoggerSaveConfig(dp);
    return 0;
}

void replace_if_positive(uint32_t &field, int32_t value) {
    if (value > 0) field = static_cast<uint32_t>(value);
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerSetSync(DP *dp, int32_t seconds) {
    return set_interval(dp, &VELDALoggerConfig::syncSeconds, seconds,
                        "Sync count changed from every %d seconds to every %d seconds\n");
}

int VELDALoggerSetCheckp(DP *dp, int32_t minutes) {
    return set_interval(dp, &VELDALoggerConfig::checkpointMinutes, minutes,
                        "Checkpoint count changed from every %d minutes to every %d minutes\n");
}

int VELDALoggerSetThreshold(DP *dp, int32_t initial_percent, int32_t step_percent, int32_t step_seconds) {
    if (!define_logger(dp)) return ENOENT;
    VELDALoggerConfig &config = *logger_context(dp).config;
    replace_if_positive(config.warnInitialPercent, initial_percent);
    replace_if_positive(config.warnStepPercent, step_percent);
    replace_if_positive(config.warnStepSeconds, step_seconds);
    LoggerSaveConfig(dp);
    VediLoggerError(dp, 0,
                    "Log file warning threshold set to %d initial percentage\n"
                    "     thereafter every additional %d percent or %d seconds",
                    static_cast<int>(config.warnInitialPercent), static_cast<int>(config.warnStepPercent),
                    static_cast<int>(config.warnStepSeconds));
    return 0;
}

int VELDALoggerSetAdminLogNotifyProgram(DP *dp, const VAR *program) {
    if (!define_logger(dp)) return ENOENT;
    VELDALoggerConfig &config = *logger_context(dp).config;
    store_path(config.adminLogNotifyProgram, program->str());
    LoggerSaveConfig(dp);
    if (config.adminLogNotifyProgram[0] == 0)
        VediLoggerError(dp, 0, "Admin. Log Notify Program REMOVED");
    else
        VediLoggerError(dp, 0, "Admin. Log Notify Program now set to '%s'", config.adminLogNotifyProgram);
    return 0;
}

int VELDALoggerSetExtendedRecord(DP *dp, int32_t flag) {
    return set_flag(dp, &VELDALoggerConfig::extendedRecords, flag, "Extended Record Status now set to %s");
}

int VELDALoggerSetEncryptedRecords(DP *dp, int32_t flag) {
    return set_flag(dp, &VELDALoggerConfig::encryptedRecords, flag, "Encrypted Records Status now set to %s");
}

int VELDALoggerSetSyncTrans(DP *dp, int32_t flag) {
    return set_flag(dp, &VELDALoggerConfig::syncTransactions, flag, "Sync Transactions Status now set to %s");
}

int VELDALoggerFileTooFull(DP *dp, int32_t percent) {
    constexpr int SpaceWarning = 257;
    VediLoggerError(dp, SpaceWarning, "Journal Log Files now at %d %% capacity", percent);
    return 0;
}

int VELDALoggerDupKill(DP *dp, int32_t pid) {
    constexpr int Interrupt = 2, IsProcess = 1;
    if (!define_logger(dp)) return ENOENT;
    for (DupStatusSlot &slot : logger_context(dp).config->dupSlots) {
        if (pid <= 0 || slot.pid != static_cast<uint32_t>(pid)) continue;
        const int own_pid = VELDAgetpid(dp);
        const int port = VELDAGetPortNumber(dp);
        slot.killerPid = static_cast<uint32_t>(own_pid);
        slot.killerPort = static_cast<uint32_t>(port);
        VELDAKillProcess(dp, Interrupt, pid, IsProcess);
        VediLoggerError(dp, 0, "Kill initiated on vlogdup process id %d : Process id %d from port %d", pid, own_pid,
                        port);
        return 0;
    }
    VELDAfprintf(dp, stderr, "Error! Process id %d is not an active vlogdup process\n", pid);
    return 0;
}
