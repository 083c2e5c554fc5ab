// VediLoggerMisc: one table of its codes, and the status of the journal.
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <iterator>

#include "runtime/journal/configuration.h"
#include "runtime/journal/set_file.h"
#include "runtime/process/context.h"

namespace velda::journal {

namespace {

struct Call {
    DP *dp;
    JournalSession &session;
    Configuration &configuration;
    int argument;
};

int save(const Call &call) {
    return msync(call.configuration.record, VELDA_LOGGER_CONFIG_BYTES, MS_SYNC) == 0 ? 0 : errno;
}

int table_lock(const Call &call) {
    if (call.argument == VELDA_LOGGER_TAKE)
        return call.session.table_lock.take(call.dp, *call.configuration.lock_file, LockByte::Table);
    return call.argument == VELDA_LOGGER_LEAVE ? call.session.table_lock.leave() : EINVAL;
}

int close_set(const Call &call) {
    const std::uint32_t set = call.configuration.record->currentSet;
    return set >= 1 && set <= VELDA_LOGGER_SETS ? sync_set(call.configuration.record->sets[set - 1]) : 0;
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

// Only a record can hold a directory: without an active journal there is none to append.
int make_directory(const Call &call) { return call.configuration.record->status == VELDA_LOGGER_INACTIVE ? 0 : ENOSYS; }

struct MiscCode {
    int code;
    bool takes_argument;
    int (*run)(const Call &call);
};

constexpr MiscCode Codes[] = {
    {VELDA_LOGGER_SAVE, false, save},
    {VELDA_LOGGER_TABLE_LOCK, true, table_lock},
    {VELDA_LOGGER_CLOSE_SET, false, close_set},
    {VELDA_LOGGER_REFRESH_COUNTS, true, refresh_counts},
    {VELDA_LOGGER_MAKE_DIRECTORY, false, make_directory},
    {VELDA_LOGGER_REFRESH, false, refresh},
    {VELDA_LOGGER_PUBLISH, false, publish},
    {VELDA_LOGGER_BEGIN_CHANGE, false, begin_change},
    {VELDA_LOGGER_END_CHANGE, false, end_change},
};

const MiscCode *find_code(int code) {
    const auto *const found = std::find_if(std::begin(Codes), std::end(Codes),
                                           [code](const MiscCode &candidate) { return candidate.code == code; });
    return found == std::end(Codes) ? nullptr : found;
}

int run_code(DP *dp, const MiscCode &code, int argument) {
    const auto configuration = configuration_of(dp);
    if (!configuration) return configuration.error().number;
    return code.run({dp, dp->state<JournalSession>(), **configuration, argument});
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VediLoggerMisc(DP *dp, int code, ...) {
    const MiscCode *const known = find_code(code);
    if (!known) return errno = EINVAL;
    va_list arguments;
    va_start(arguments, code);
    const int argument = known->takes_argument ? va_arg(arguments, int) : 0;
    va_end(arguments);
    const int error = run_code(dp, *known, argument);
    if (error != 0) errno = error;
    return error;
}

int VediLoggerStatus(DP *dp) {
    const Configuration *const configuration = configuration_or_null(dp);
    return configuration ? static_cast<int>(configuration->record->status) : VELDA_LOGGER_INACTIVE;
}
