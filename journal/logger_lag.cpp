// How far the running duplicators have got, and how far behind the journal those are that read it.
#include "journal/logger_lag.h"

#include <algorithm>
#include <atomic>
#include <cinttypes>

#include "journal/journal.h"
#include "journal/log_select.h"
#include "journal/logger_context.h"

namespace velda::journal {

namespace {

// The slot belongs to another process, which stores each number at once.
template <class Number>
Number now(const Number &field) {
    return std::atomic_ref<Number>(const_cast<Number &>(field)).load(std::memory_order_relaxed);
}

bool reads_log_set(const DupStatusSlot &slot) { return slot.inputDevice == LogSetDevice && now(slot.inputSet) != 0; }

// Records that the journal holds behind the last one read: the rest of that set, and all of the later sets.
std::int64_t records_behind(const VELDALoggerConfig &config, const DupStatusSlot &slot) {
    const LogSetInfo &held = logger_set(config, now(slot.inputSet));
    std::int64_t records = std::max<std::int64_t>(now(held.recordCount) - now(slot.inputSetRecords), 0);
    for (const LogSetInfo &set : config.sets)
        if (set.timeFirst > held.timeFirst) records += now(set.recordCount);
    return records;
}

const DupWatch &watch_of(const VELDALoggerConfig &config, const DupStatusSlot &slot) {
    return config.dupWatches[&slot - config.dupSlots];
}

// Bytes of the held set's files up to the reader, as set_size_bytes counts them up to the writer. A reader at the end of a
// block is still in it.
double bytes_read(const VELDALoggerConfig &config, const LogSetInfo &held, const DupWatch &watch) {
    const std::int64_t offset = now(watch.inputOffset);
    const std::int64_t in_block = offset == 0 ? 0 : (offset - 1) % config.blockSize + 1;
    return static_cast<double>(offset - in_block) * named_files(held) +
           static_cast<double>(config.blockSize) * now(watch.inputFile) + static_cast<double>(in_block);
}

std::int64_t bytes_behind(const VELDALoggerConfig &config, const DupStatusSlot &slot, std::int64_t records) {
    if (records == 0 || config.blockSize == 0) return 0;
    const LogSetInfo &held = logger_set(config, now(slot.inputSet));
    const double read = bytes_read(config, held, watch_of(config, slot));
    double bytes = std::max(set_size_bytes(held, config.blockSize) - read, 0.0);
    for (const LogSetInfo &set : config.sets)
        if (set.timeFirst > held.timeFirst) bytes += set_size_bytes(set, config.blockSize);
    return static_cast<std::int64_t>(bytes);
}

std::int64_t seconds_behind(const VELDALoggerConfig &config, const DupStatusSlot &slot, std::int64_t records) {
    if (records == 0) return 0;
    std::int64_t newest = 0;
    for (const LogSetInfo &set : config.sets) newest = std::max(newest, now(set.timeLast));
    return std::max<std::int64_t>(
        newest - std::max(now(slot.lastTime), logger_set(config, now(slot.inputSet)).timeFirst), 0);
}

double records_a_second(const DupStatusSlot &slot) {
    const std::int64_t seconds = present_time() - static_cast<std::int64_t>(slot.startTime);
    return static_cast<double>(now(slot.inputRecords)) / static_cast<double>(std::max<std::int64_t>(seconds, 1));
}

}  // namespace

DuplicatorLag lag_of(const VELDALoggerConfig &config, const DupStatusSlot &slot) {
    if (!reads_log_set(slot)) return {};
    const std::int64_t records = records_behind(config, slot);
    return {true, records, bytes_behind(config, slot, records), seconds_behind(config, slot, records)};
}

std::string last_error_of(const VELDALoggerConfig &config, const DupStatusSlot &slot) {
    const DupWatch &watch = watch_of(config, slot);
    return now(watch.lastErrorTime) == 0 ? "" : logger_text(watch.lastError, sizeof watch.lastError);
}

}  // namespace velda::journal

using namespace velda::journal;

int velda_duplicator_lag(DP *dp, VAR *result) {
    LoggerContext &context = logger_context(dp);
    result->clear();
    if (!map_logger(dp, context)) return 0;
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH);
    int value = 0;
    for (const DupStatusSlot &slot : context.config->dupSlots) {
        if (slot.pid == 0) continue;
        ++value;
        LoggerStoreField(dp, result, 1, value, "%d", static_cast<int>(slot.pid));
        if (const std::int64_t time = now(slot.lastTime)) LoggerStoreField(dp, result, 2, value, "%" PRId64, time);
        LoggerStoreField(dp, result, 3, value, "%.1f", records_a_second(slot));
        if (const DuplicatorLag lag = lag_of(*context.config, slot); lag.is_known) {
            LoggerStoreField(dp, result, 4, value, "%" PRId64, lag.records);
            LoggerStoreField(dp, result, 5, value, "%" PRId64, lag.seconds);
            LoggerStoreField(dp, result, 7, value, "%" PRId64, lag.bytes);
        }
        if (const std::int64_t milestone = now(slot.milestone))
            LoggerStoreField(dp, result, 6, value, "%" PRId64, milestone);
        if (const std::string error = last_error_of(*context.config, slot); !error.empty())
            LoggerStoreField(dp, result, 8, value, "%s", error.c_str());
    }
    return 0;
}
