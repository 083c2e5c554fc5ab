// The reports of the journal, attribute by attribute.
#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <vector>

#include "journal/journal.h"
#include "journal/logger_context.h"

namespace velda::journal {

namespace {

// How a field of the configuration is shown.
enum class Shown { Integer, Time, Text };

struct ConfigurationField {
    int attribute;
    Shown shown;
    size_t offset;
    size_t size;
};

#define CONFIGURATION_FIELD(attribute, shown, name) \
    { attribute, Shown::shown, offsetof(VELDALoggerConfig, name), sizeof(VELDALoggerConfig::name) }

constexpr ConfigurationField FieldsBeforeTheSet[] = {
    CONFIGURATION_FIELD(9, Integer, updateCount),
    CONFIGURATION_FIELD(10, Text, configPath),
    CONFIGURATION_FIELD(11, Integer, status),
    CONFIGURATION_FIELD(12, Time, createdTime),
    CONFIGURATION_FIELD(13, Integer, createdPort),
    CONFIGURATION_FIELD(14, Text, createdUser),
    CONFIGURATION_FIELD(15, Time, updatedTime),
    CONFIGURATION_FIELD(16, Integer, updatedPort),
    CONFIGURATION_FIELD(17, Text, updatedUser),
    CONFIGURATION_FIELD(18, Time, switchedTime),
    CONFIGURATION_FIELD(19, Integer, switchedPort),
    CONFIGURATION_FIELD(20, Text, switchedUser),
    CONFIGURATION_FIELD(22, Integer, currentSet),
    CONFIGURATION_FIELD(23, Integer, syncSeconds),
    CONFIGURATION_FIELD(24, Integer, activatedTime),
    CONFIGURATION_FIELD(25, Integer, extendedRecords),
    CONFIGURATION_FIELD(30, Text, adminLogPath),
    CONFIGURATION_FIELD(31, Text, adminLogNotifyProgram),
    CONFIGURATION_FIELD(40, Integer, checkpointMinutes),
    CONFIGURATION_FIELD(41, Integer, lastCheckpoint),
    CONFIGURATION_FIELD(42, Integer, encryptedRecords),
    CONFIGURATION_FIELD(43, Integer, syncTransactions),
};

constexpr ConfigurationField FieldsOfTheWriter[] = {
    CONFIGURATION_FIELD(32, Integer, reportField32),
    CONFIGURATION_FIELD(33, Integer, warnInitialPercent),
    CONFIGURATION_FIELD(34, Integer, warnStepPercent),
    CONFIGURATION_FIELD(35, Integer, warnStepSeconds),
};

constexpr ConfigurationField StatisticsFields[] = {
    CONFIGURATION_FIELD(6, Integer, status),         CONFIGURATION_FIELD(7, Time, updatedTime),
    CONFIGURATION_FIELD(8, Time, switchedTime),      CONFIGURATION_FIELD(9, Integer, currentSet),
    CONFIGURATION_FIELD(10, Integer, activatedTime), CONFIGURATION_FIELD(11, Integer, lastCheckpoint),
};

#undef CONFIGURATION_FIELD

constexpr int FirstQueueAttribute = 48;

template <class Number>
Number number_at(const void *field) {
    Number number;
    std::memcpy(&number, field, sizeof number);
    return number;
}

void store_configuration_field(DP *dp, VAR *result, const VELDALoggerConfig &config, const ConfigurationField &field) {
    const char *const bytes = reinterpret_cast<const char *>(&config) + field.offset;
    switch (field.shown) {
        case Shown::Integer:
            return LoggerStoreField(dp, result, field.attribute, 0, "%d", number_at<int32_t>(bytes));
        case Shown::Time:
            return LoggerStoreField(dp, result, field.attribute, 0, "%" PRId64, number_at<int64_t>(bytes));
        case Shown::Text:
            return LoggerStoreField(dp, result, field.attribute, 0, "%s", logger_text(bytes, field.size).c_str());
    }
}

template <size_t Count>
void store_configuration(DP *dp, VAR *result, const VELDALoggerConfig &config,
                         const ConfigurationField (&fields)[Count]) {
    for (const ConfigurationField &field : fields) store_configuration_field(dp, result, config, field);
}

// How full the devices of a set's files are; each is asked once in a report.
class DeviceSpace {
  public:
    double percent_used(DP *dp, uint64_t device, const char *path) {
        for (const Known &known : known_)
            if (known.device == device) return known.percent;
        uint64_t total = 0, available = 0;
        VediBaseCheckFileSizePath(dp, path, &total, &available);
        const double percent =
            total == 0 ? 0 : static_cast<double>(total - available) / static_cast<double>(total) * 100;
        known_.push_back({device, percent, total == 0 && available == 0});
        return percent;
    }
    bool is_unknown(uint64_t device) const {
        for (const Known &known : known_)
            if (known.device == device) return known.is_unknown;
        return false;
    }

  private:
    struct Known {
        uint64_t device;
        double percent;
        bool is_unknown;
    };
    std::vector<Known> known_;
};

// What of the report a file's percentage decides: a file that cannot be opened has none.
bool store_percent_used(DP *dp, VAR *result, int attribute, int value, const VELDALoggerConfig &config,
                        const LogSetInfo &set, const LogFileEntry &file, DeviceSpace &space) {
    constexpr char Format[] = "%.2lf";
    if (file.maxSize > 0) {
        const double used =
            (static_cast<double>(set.fileOffset) + config.blockSize) / static_cast<double>(file.maxSize);
        LoggerStoreField(dp, result, attribute, value, Format, used * 100);
        return true;
    }
    const std::string path = logger_text(file.path, sizeof file.path);
    VRunFile *const opened = VRunFileIOOpen(dp, path.c_str(), VELDA_OPEN_READ, 0);
    if (!opened) return false;
    const uint64_t device = VRunFileIOGetDevice(dp, opened);
    VRunFileIOClose(dp, opened);
    const double percent = space.percent_used(dp, device, path.c_str());
    if (space.is_unknown(device))
        LoggerStoreField(dp, result, attribute, value, "0");
    else
        LoggerStoreField(dp, result, attribute, value, Format, percent);
    return true;
}

// The report of a journal that cannot be mapped.
void store_failure(DP *dp, VAR *result) {
    result->clear();
    LoggerStoreField(dp, result, 1, 0, "-1");
    LoggerStoreField(dp, result, 2, 0, "Error number %d reading the logger configuration", errno);
}

bool map_for_report(DP *dp, VAR *result) {
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) {
        store_failure(dp, result);
        return false;
    }
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH);
    return true;
}

void store_files(DP *dp, VAR *result, const VELDALoggerConfig &config, const LogSetInfo &set) {
    DeviceSpace space;
    int value = 0;
    for (const LogFileEntry &file : set.files) {
        if (!is_named(file)) continue;
        ++value;
        LoggerStoreField(dp, result, 3, value, "%s", logger_text(file.path, sizeof file.path).c_str());
        if (!store_percent_used(dp, result, 4, value, config, set, file, space)) continue;
        LoggerStoreField(dp, result, 5, value, "%" PRId64, file.createdTime);
        LoggerStoreField(dp, result, 6, value, "%" PRId64, file.maxSize);
    }
    LoggerStoreField(dp, result, 2, 0, "%d", value);
}

void store_times(DP *dp, VAR *result, int first_attribute, const LogSetInfo &set) {
    LoggerStoreField(dp, result, first_attribute, 0, "%" PRId64, set.timeFirst);
    LoggerStoreField(dp, result, first_attribute + 1, 0, "%" PRId64, set.timeLast == 0 ? present_time() : set.timeLast);
}

// Words three to five of the statistics, and the quotient, which has no value where it would divide by nothing.
void store_counts(DP *dp, VAR *result, int first_attribute, const VELDALoggerConfig &config) {
    const auto word = [&](int n) { return static_cast<int64_t>(config.statistics[n - 1]); };
    for (int n = 3; n <= 5; ++n) LoggerStoreField(dp, result, first_attribute + n - 3, 0, "%" PRId64, word(n));
    const int64_t divisor = word(3) + word(4);
    if (word(5) == 0 || divisor == 0) return;
    LoggerStoreField(dp, result, first_attribute + 3, 0, "%" PRId64, word(5) / divisor);
}

void store_queues(DP *dp, VAR *result, const VELDALoggerConfig &config) {
    int attribute = FirstQueueAttribute;
    for (const auto &name : config.mqNames)
        LoggerStoreField(dp, result, attribute++, 0, "%s", logger_text(name, sizeof name).c_str());
}

void store_status(DP *dp, VAR *result, const VELDALoggerConfig &config, const LogSetInfo &set) {
    store_files(dp, result, config, set);
    LoggerStoreField(dp, result, 7, 0, "%.0lf", set_size_bytes(set, config.blockSize));
    LoggerStoreField(dp, result, 8, 0, "%" PRId64, set.recordCount);
    store_configuration(dp, result, config, FieldsBeforeTheSet);
    store_times(dp, result, 36, set);
    LoggerStoreField(dp, result, 38, 0, "%" PRId64, set.archivedTime);
    LoggerStoreField(dp, result, 39, 0, "%s", logger_text(set.archiveLocation, sizeof set.archiveLocation).c_str());
    store_counts(dp, result, 44, config);
    store_queues(dp, result, config);
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH_COUNTS, 0);
    store_configuration(dp, result, config, FieldsOfTheWriter);
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

VAR *VELDALoggerGetStatus(VAR *result, DP *dp, int32_t set) {
    if (!map_for_report(dp, result)) return result;
    const VELDALoggerConfig &config = *logger_context(dp).config;
    const int number = set < 0 ? static_cast<int>(config.currentSet) : set;
    result->clear();
    if (number > VELDA_LOGGER_SETS) {
        LoggerStoreField(dp, result, 1, 0, "-1");
        LoggerStoreField(dp, result, 2, 0, "Set number %d is invalid (should be in range 1 to %d)", number,
                         VELDA_LOGGER_SETS);
        return result;
    }
    LoggerStoreField(dp, result, 1, 0, "%d", number);
    store_status(dp, result, config, logger_set(config, number));
    return result;
}

VAR *VELDALoggerStatistics(VAR *result, DP *dp) {
    if (!map_for_report(dp, result)) return result;
    const VELDALoggerConfig &config = *logger_context(dp).config;
    const LogSetInfo &set = logger_set(config, config.currentSet);
    result->clear();
    LoggerStoreField(dp, result, 1, 0, "%d", static_cast<int>(config.currentSet));
    DeviceSpace space;
    int value = 0;
    for (const LogFileEntry &file : set.files)
        if (is_named(file)) store_percent_used(dp, result, 3, ++value, config, set, file, space);
    LoggerStoreField(dp, result, 4, 0, "%.0lf", set_size_bytes(set, config.blockSize));
    LoggerStoreField(dp, result, 5, 0, "%" PRId64, set.recordCount);
    store_configuration(dp, result, config, StatisticsFields);
    store_times(dp, result, 12, set);
    store_counts(dp, result, 14, config);
    return result;
}

int VELDALoggerCheckSetFile(DP *dp, int32_t set) {
    constexpr int BadSet = 2;
    if (set < 1 || set > VELDA_LOGGER_SETS) return BadSet;
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) return 0;
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH);
    return logger_set(*context.config, set).recordCount > 0 ? 1 : 0;
}
