#include "runtime/journal/set_change.h"

#include <algorithm>
#include <atomic>
#include <ctime>

#include "runtime/journal/under_way.h"
#include "runtime/journal/writer.h"
#include "runtime/journal/writer_state.h"
#include "runtime/process/context.h"

namespace velda::journal {

namespace {

void store_status(VELDALoggerConfig &config, std::uint32_t status) {
    std::atomic_ref(config.status).store(status, std::memory_order_seq_cst);
}

// Whether the current set was emptied as the last of all: then the change got so far that readers may have seen it.
bool is_latest_use(const VELDALoggerConfig &config) {
    if (!is_set(config.currentSet)) return false;
    const LogSetInfo &current = config.sets[config.currentSet - 1];
    return std::all_of(std::begin(config.sets), std::end(config.sets),
                       [&](const LogSetInfo &set) { return &set == &current || set.timeFirst < current.timeFirst; });
}

// The change lock is held. The fields of a set that is emptied only in part are brought up to date by its first append.
void finish_change(Configuration &configuration) {
    VELDALoggerConfig &config = *configuration.record;
    HeldWriters &held = writer_state(config).held;
    if (!held.is_held) return;
    if (config.currentSet != held.set && !is_latest_use(config)) store_word(config.currentSet, held.set);
    // Another status was given since by somebody who did not wait.
    if (const std::uint32_t status = load_word(config.status); status != VELDA_LOGGER_SUSPENDED) held.status = status;
    release_writers(configuration);
}

}  // namespace

void hold_writers(DP *dp, Configuration &configuration) {
    finish_change(configuration);
    VELDALoggerConfig &config = *configuration.record;
    HeldWriters &held = writer_state(config).held;
    held.status = config.status;
    held.set = config.currentSet;
    std::atomic_ref(held.is_held).store(1, std::memory_order_release);
    store_status(config, VELDA_LOGGER_SUSPENDED);
    wait_for_sessions_under_way(dp->state<JournalSession>(), configuration);
}

void release_writers(Configuration &configuration) {
    VELDALoggerConfig &config = *configuration.record;
    HeldWriters &held = writer_state(config).held;
    store_status(config, held.status);
    std::atomic_ref(held.is_held).store(0, std::memory_order_release);
}

void finish_abandoned_change(DP *dp, Configuration &configuration) {
    WriterState &state = writer_state(*configuration.record);
    const bool is_held = std::atomic_ref(state.held.is_held).load(std::memory_order_acquire) != 0;
    if (!is_held && !is_current_set_closed(configuration)) return;
    if (!configuration.lock_file->try_take(LockByte::Change, dp)) return;
    finish_change(configuration);
    std::atomic_ref(state.closed_use).store(0, std::memory_order_release);
    configuration.lock_file->leave(LockByte::Change);
}

bool is_current_set_closed(const Configuration &configuration) {
    VELDALoggerConfig &config = *configuration.record;
    const std::int64_t closed = std::atomic_ref(writer_state(config).closed_use).load(std::memory_order_acquire);
    const std::uint32_t number = config.currentSet;
    return closed != 0 && is_set(number) && config.sets[number - 1].timeFirst == closed;
}

void change_status(DP *dp, Configuration &configuration, std::uint32_t status) {
    finish_change(configuration);
    store_status(*configuration.record, status);
    if (status == VELDA_LOGGER_ACTIVE) return;
    wait_for_sessions_under_way(dp->state<JournalSession>(), configuration);
    wait_for_append(dp, configuration);
}

Result<void> close_current_set(DP *dp, Configuration &configuration) {
    return is_set(configuration.record->currentSet) ? append_end_of_set(dp, configuration) : Result<void>();
}

std::int64_t next_use_time(const VELDALoggerConfig &config) {
    std::int64_t time = std::time(nullptr);
    for (const LogSetInfo &set : config.sets) time = std::max({time, set.timeFirst + 1, set.timeLast});
    return time;
}

}  // namespace velda::journal
