// The configuration: found, or made with the files that go with it.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "journal/journal.h"
#include "journal/logger_context.h"

namespace velda::journal {

namespace {

constexpr char PathFormat[] = "%s%cconfig%c%s";
constexpr char Separator = '/';
constexpr int AnyoneMayUse = 438;  // 0666

std::string logger_path(DP *dp, const char *name) {
    const char *const given = VELDAgetenv(dp, "VBCLOGCONFDIR");
    const std::string directory = given && *given ? given : system_number(1012).str();
    const int length = std::snprintf(nullptr, 0, PathFormat, directory.c_str(), Separator, Separator, name);
    std::string path(static_cast<size_t>(length), '\0');
    std::snprintf(path.data(), path.size() + 1, PathFormat, directory.c_str(), Separator, Separator, name);
    return path;
}

void store_text(char *field, size_t size, const std::string &text) { std::snprintf(field, size, "%s", text.c_str()); }

VELDALoggerConfig new_record(DP *dp, const std::string &path, const std::string &admin_log) {
    const auto now = present_time();
    const std::string user = system_number(1015).str();
    const auto port = static_cast<uint32_t>(VELDAGetPortNumber(dp));
    VELDALoggerConfig record = {};
    std::memcpy(record.magic, VELDA_LOGGER_MAGIC, sizeof record.magic);
    store_text(record.configPath, sizeof record.configPath, path);
    record.recordSize = sizeof record;
    store_text(record.adminLogPath, sizeof record.adminLogPath, admin_log);
    record.formatVersion = VELDA_LOGGER_FORMAT_VERSION;
    record.byteOrderMark = VELDA_LOGGER_BYTE_ORDER;
    record.updateCount = 1;
    record.createdTime = static_cast<uint64_t>(now);
    record.createdPort = port;
    store_text(record.createdUser, sizeof record.createdUser, user);
    record.updatedTime = ~uint64_t{0};
    record.warnInitialPercent = 70;
    record.warnStepPercent = 1;
    record.warnStepSeconds = 300;
    record.syncSeconds = 10;
    record.switchedTime = static_cast<uint64_t>(now);
    record.switchedPort = port;
    store_text(record.switchedUser, sizeof record.switchedUser, user);
    record.activatedTime = static_cast<uint32_t>(now);
    record.checkpointMinutes = 10;
    record.syncTransactions = 1;
    record.lastCheckpoint = -1;
    return record;
}

// A part of a configuration, on a full disk, would be in the way once there is room.
void take_back(DP *dp, const std::string &path, int error) {
    VELDAMoveOrDeleteFile(dp, path.c_str(), "", 0);
    errno = error;
    VELDAperror(dp, path.c_str());
}

// Of several processes that find no file, one makes it; the others go on with what that one makes.
void create_configuration(DP *dp, const std::string &path, const std::string &admin_log) {
    velda_logger_make_directory(dp);
    VRunFile *const file = VRunFileIOOpen(dp, path.c_str(), VELDA_OPEN_READ_WRITE | VELDA_OPEN_NEW, AnyoneMayUse);
    if (!file) return;
    const VELDALoggerConfig record = new_record(dp, path, admin_log);
    const int error = VRunFileIOWrite(dp, file, 0, &record, sizeof record, nullptr);
    VRunFileIOClose(dp, file);
    if (error != 0) return take_back(dp, path, error);
    // Sessions that found none look again within this time: no update is made unseen once the journal is used.
    velda_logger_await_discovery(dp);
    VRunFileIOClose(dp, VRunFileIOOpen(dp, admin_log.c_str(),
                                       VELDA_OPEN_READ_WRITE | VELDA_OPEN_CREATE | VELDA_OPEN_TRUNCATE, AnyoneMayUse));
}

void create_lock_file(DP *dp, const std::string &path) {
    VRunFile *const file = VRunFileIOOpen(dp, path.c_str(), VELDA_OPEN_READ_WRITE | VELDA_OPEN_CREATE, AnyoneMayUse);
    if (!file) {
        VELDAperror(dp, "Transaction Lock File Init");
        exit_command(1);
    }
    VRunFileIOClose(dp, file);
}

[[noreturn]] void refuse_to_run(DP *dp) {
    const int error = errno;
    VELDAfprintf(dp, stderr, "%s\n", velda_logger_error(dp));
    errno = error;
    VELDAperror(dp, "Logger Init");
    exit_command(1);
}

}  // namespace

bool ensure_logger(DP *dp) {
    LoggerContext &context = logger_context(dp);
    if (map_logger(dp, context)) return true;
    if (errno != ENOENT) return false;
    create_configuration(dp, logger_path(dp, "vediLoggerConfig"), logger_path(dp, "vediLoggerAdminLog"));
    create_lock_file(dp, logger_path(dp, "vediLoggerTransLock"));
    return map_logger(dp, context);
}

}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerGetDefinition(DP *dp) {
    if (!ensure_logger(dp) && !VELDAgetenv(dp, "MULTIAPP")) refuse_to_run(dp);
    return 0;
}
