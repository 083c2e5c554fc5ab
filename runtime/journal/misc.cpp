// VediLoggerMisc: one table of its codes, and the status of the journal.
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <iterator>

#include "runtime/journal/configuration.h"
#include "runtime/journal/file_records.h"
#include "runtime/journal/injection.h"
#include "runtime/journal/set_change.h"
#include "runtime/journal/under_way.h"
#include "runtime/process/context.h"
#include "runtime/store/driver.h"

namespace velda::journal {

namespace {

struct Call {
    DP *dp;
    JournalSession &session;
    Configuration &configuration;
    int argument;
    const char *path;
};

int save(const Call &call) {
    int failed = injected_failure(Step::Save);
    if (failed == 0 && msync(call.configuration.record, VELDA_LOGGER_CONFIG_BYTES, MS_SYNC) != 0) failed = errno;
    if (failed == 0) return 0;
    return number_of(call.dp, system_error(failed, "cannot save journal configuration", call.configuration.path));
}

int table_lock(const Call &call) {
    if (call.argument == VELDA_LOGGER_TAKE)
        return call.session.table_lock.take(call.dp, *call.configuration.lock_file, LockByte::Table);
    return call.argument == VELDA_LOGGER_LEAVE ? call.session.table_lock.leave() : EINVAL;
}

int close_set(const Call &call) {
    const int error = number_of(call.dp, close_current_set(call.dp, call.configuration));
    const int unsaved = save(call);
    return error != 0 ? error : unsaved;
}

// The counts lie in the shared record itself: seeing what others stored is all there is to bring up to date.
int refresh(const Call &) {
    std::atomic_thread_fence(std::memory_order_acquire);
    return 0;
}

int publish(const Call &) {
    std::atomic_thread_fence(std::memory_order_release);
    return 0;
}

int refresh_counts(const Call &call) { return call.argument == 0 ? refresh(call) : EINVAL; }

int begin_change(const Call &call) {
    return call.session.change_lock.take(call.dp, *call.configuration.lock_file, LockByte::Change);
}

int end_change(const Call &call) { return call.session.change_lock.leave(); }

int begin_batch(const Call &call) { return number_of(call.dp, begin_under_way(call.dp, call.configuration)); }

int end_batch(const Call &call) {
    if (call.session.depth == 0) return EPERM;
    end_under_way(call.session);
    return 0;
}

// What this session read before, of files and of the configuration's absence, counts no more.
int refresh_session(const Call &call) {
    call.session.looked_until = 0;
    store::release_snapshots();
    return refresh(call);
}

int make_directory(const Call &call) {
    return call.path ? number_of(call.dp, journal_directory(call.dp, call.path)) : EINVAL;
}

enum class Takes { Nothing, Number, Path };

struct MiscCode {
    int code;
    Takes takes;
    int (*run)(const Call &call);
};

constexpr MiscCode Codes[] = {
    {VELDA_LOGGER_SAVE, Takes::Nothing, save},
    {VELDA_LOGGER_TABLE_LOCK, Takes::Number, table_lock},
    {VELDA_LOGGER_CLOSE_SET, Takes::Nothing, close_set},
    {VELDA_LOGGER_REFRESH_COUNTS, Takes::Number, refresh_counts},
    {VELDA_LOGGER_REFRESH_SESSION, Takes::Nothing, refresh_session},
    {VELDA_LOGGER_MAKE_DIRECTORY, Takes::Path, make_directory},
    {VELDA_LOGGER_BEGIN_BATCH, Takes::Nothing, begin_batch},
    {VELDA_LOGGER_END_BATCH, Takes::Nothing, end_batch},
    {VELDA_LOGGER_REFRESH, Takes::Nothing, refresh},
    {VELDA_LOGGER_PUBLISH, Takes::Nothing, publish},
    {VELDA_LOGGER_BEGIN_CHANGE, Takes::Nothing, begin_change},
    {VELDA_LOGGER_END_CHANGE, Takes::Nothing, end_change},
};

const MiscCode *find_code(int code) {
    const auto *const found = std::find_if(std::begin(Codes), std::end(Codes),
                                           [code](const MiscCode &candidate) { return candidate.code == code; });
    return found == std::end(Codes) ? nullptr : found;
}

int run_code(DP *dp, const MiscCode &code, int argument, const char *path) {
    const auto configuration = configuration_of(dp);
    if (!configuration) return configuration.error().number;
    return code.run({dp, dp->state<JournalSession>(), **configuration, argument, path});
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VediLoggerMisc(DP *dp, int code, ...) {
    const MiscCode *const known = find_code(code);
    if (!known) return errno = EINVAL;
    va_list arguments;
    va_start(arguments, code);
    const int argument = known->takes == Takes::Number ? va_arg(arguments, int) : 0;
    const char *const path = known->takes == Takes::Path ? va_arg(arguments, const char *) : nullptr;
    va_end(arguments);
    const int error = run_code(dp, *known, argument, path);
    if (error != 0) errno = error;
    return error;
}

int VediLoggerStatus(DP *dp) {
    const Configuration *const configuration = configuration_or_null(dp);
    return configuration ? static_cast<int>(configuration->record->status) : VELDA_LOGGER_INACTIVE;
}

void velda_logger_hold_writers(DP *dp) {
    if (const auto configuration = configuration_of(dp)) hold_writers(dp, **configuration);
}

void velda_logger_release_writers(DP *dp) {
    if (const auto configuration = configuration_of(dp)) release_writers(**configuration);
}

void velda_logger_set_status(DP *dp, int status) {
    if (const auto configuration = configuration_of(dp))
        change_status(dp, **configuration, static_cast<std::uint32_t>(status));
}

int64_t velda_logger_next_time(DP *dp) {
    const auto configuration = configuration_of(dp);
    return configuration ? next_use_time(*(*configuration)->record) : 0;
}
