// Reading a selection: the sets in the order of their times, waits at the end, damaged records passed over or reported.
#include <cerrno>
#include <memory>

#include "journal/duplicator/duplicator.h"
#include "journal/log_bytes.h"
#include "journal/log_reading.h"
#include "journal/log_record.h"

namespace velda::journal {

namespace {

constexpr int MostAttempts = 10;

// What a step of the loop leads to: a record, another round, or the end of reading with a reason.
struct Step {
    const unsigned char *record = nullptr;
    int error = 0;
    bool is_done() const { return record || error != 0; }
};

struct Reading {
    DP *dp;
    LoggerContext &context;
    LogSelect &select;
    VELDALoggerCallback callback;
    int attempts = 0;
    int last_error = 0;
};

void tell(const Reading &reading, CallbackCode code) {
    if (reading.callback) reading.callback(reading.dp, code);
}

// Sleeps until the next try, or until something holds. Whoever is told may end the process meanwhile: however long the
// time between tries is, nobody who orders an end waits for it.
template <class Condition>
void sleep_until(const Reading &reading, Condition condition) {
    const VAR slice_milliseconds(10);
    const std::int64_t end = steady_milliseconds() + std::int64_t{reading.select.retry} * 1000;
    while (!condition() && steady_milliseconds() < end) {
        VLibEMSLEEP_VB(reading.dp, &slice_milliseconds);
        tell(reading, BetweenRecords);
    }
}

void sleep_before_retry(const Reading &reading) {
    tell(reading, RetryBegins);
    sleep_until(reading, [] { return false; });
    tell(reading, RetryEnds);
}

// As the configuration told last. A set that is no longer current is read until its EOF record.
bool has_known_more(const Reading &reading) {
    const LogSelect &select = reading.select;
    const VELDALoggerConfig &config = *reading.context.config;
    if (select.setSwitched != 0) return false;
    return static_cast<uint32_t>(select.set) != config.currentSet ||
           select.recordsRead < logger_set(config, select.set).recordCount;
}

// What was more stays more: only an end is looked at afresh.
bool has_more(const Reading &reading) {
    if (has_known_more(reading)) return true;
    VediLoggerMisc(reading.dp, VELDA_LOGGER_REFRESH);
    return has_known_more(reading);
}

// The set with the smallest time above that of the set being read, 0 when there is none.
std::int32_t later_set(const Reading &reading) {
    std::int32_t found = 0;
    int64_t found_time = 0;
    for (std::int32_t set = 1; set <= VELDA_LOGGER_SETS; ++set) {
        const int64_t time = logger_set(*reading.context.config, set).timeFirst;
        if (time <= reading.select.setFirstTime || (found != 0 && time >= found_time)) continue;
        found = set;
        found_time = time;
    }
    return found;
}

bool has_input(const Reading &reading) {
    return has_more(reading) || later_set(reading) != 0 || reading.context.config->currentSet == 0;
}

// No longer than until something has come: who keeps up with the journal is never behind by more than a slice of the
// sleep.
void sleep_until_input(const Reading &reading) {
    tell(reading, WaitBegins);
    sleep_until(reading, [&] { return has_input(reading); });
    tell(reading, WaitEnds);
}

Step wait_for_input(const Reading &reading) {
    LogSelect &select = reading.select;
    if ((select.flags & SelectWait) == 0) return {nullptr, StopNoLaterSet};
    const int64_t now = present_time();
    if (select.waitStart != 0 && select.timeout >= 1 && now - select.waitStart >= select.timeout) {
        VediLoggerError(reading.dp, 0, "Time out exceeded");
        return {nullptr, StopTimeout};
    }
    if (select.waitStart == 0) select.waitStart = now;
    sleep_until_input(reading);
    return {};
}

// The end of the set: to a later one, a wait, or the end of reading. Without an error and a record: another round.
Step leave_set(const Reading &reading, bool &found_set) {
    LogSelect &select = reading.select;
    if ((select.flags & SelectEos) != 0 && (select.flags & SelectWait) == 0) return {nullptr, StopEndOfSet};
    if (reading.context.config->currentSet == 0) return {nullptr, StopEndOfSet};
    const std::int32_t set = later_set(reading);
    found_set = set != 0;
    if (!found_set) return wait_for_input(reading);
    // Not before: while no later set is there, reading on behind the EOF record would find nothing but damage.
    select.setSwitched = 0;
    select.set = set;
    select.setFirstTime = logger_set(*reading.context.config, set).timeFirst;
    select.file = 0;
    select.offset = 0;
    select.recordsRead = 0;
    return {};
}

void note_end_of_set(LogSelect &select) {
    constexpr std::uint32_t UntilSwitched = SelectEos | SelectWait;
    select.setSwitched = 1;
    if ((select.flags & UntilSwitched) == UntilSwitched && select.recordsRead != 0) select.flags &= ~SelectWait;
}

Step pass_record(const Reading &reading, const unsigned char *record) {
    LogSelect &select = reading.select;
    const LogHeader header(record);
    LoggerAdvance(reading.dp, &select.file, &select.offset, header.record_size);
    ++select.recordsRead;
    if (header.type == static_cast<uint8_t>(RecordType::Eof)) note_end_of_set(select);
    if (reading.context.lastTime < select.startTime) return {};
    if (select.endTime > 0 && reading.context.lastTime > select.endTime) {
        VediLoggerError(reading.dp, 0, "Record read is past end time");
        return {nullptr, StopPastEndTime};
    }
    return {record, 0};
}

Step try_record(Reading &reading) {
    LogSelect &select = reading.select;
    if (select.set == 0) return {nullptr, StopNoSet};
    const unsigned char *record =
        record_in_held_block(reading.dp, reading.context, select.set, {select.file, select.offset});
    if (!record)
        record =
            VELDALoggerReadRecord(reading.dp, &select, select.file, select.set, select.offset, 0, reading.callback);
    if (record) return pass_record(reading, record);
    const int error = errno;
    if (error == ENOENT) return {nullptr, StopReadFailed};
    reading.last_error = error;
    sleep_before_retry(reading);
    ++reading.attempts;
    return {};
}

Step one_round(Reading &reading) {
    if (!has_more(reading)) {
        bool found_set = false;
        const Step step = leave_set(reading, found_set);
        if (!found_set) return step;
    }
    return try_record(reading);
}

// Running, gone, or not known and so taken as running.
bool LoggerProcessAlive(DP *dp, uint32_t pid) {
    const int error = VELDAKillProcess(dp, 0, static_cast<int>(pid), 1);
    return error != ESRCH && error != EINVAL;
}

int pass_damage(const Reading &reading) {
    LogSelect &select = reading.select;
    const uint32_t pid = reading.context.unfinishedPid;
    VediLoggerError(reading.dp, 0, "Error reading file %i, set %i, offset %i\n\r", select.file, select.set,
                    static_cast<int>(select.offset));
    if (LoggerProcessAlive(reading.dp, pid))
        VediLoggerError(
            reading.dp, 0,
            "The writing process (Pid %d) is still running but has not written all data to Transaction Journal\n",
            static_cast<int>(pid));
    else
        VediLoggerError(reading.dp, 0,
                        "The process which started writing to the Transaction Journal (Pid %d) has terminated before "
                        "completion\n",
                        static_cast<int>(pid));
    ++select.recordsRead;
    return LoggerRecover(reading.dp, &select);
}

// A record, or null with the reason in errno.
const unsigned char *read_set(DP *dp, LoggerContext &context, LogSelect &select, VELDALoggerCallback callback) {
    for (;;) {
        Reading reading{dp, context, select, callback};
        select.waitStart = 0;
        Step step;
        while (!step.is_done() && reading.attempts < MostAttempts) step = one_round(reading);
        if (!step.is_done())
            step.error = reading.last_error == VELDA_LOGGER_DAMAGED ? pass_damage(reading) : reading.last_error;
        if (step.error == VELDA_LOGGER_DAMAGED) continue;
        errno = step.error;
        return step.record;
    }
}

const unsigned char *read_any(DP *dp, LoggerContext &context, LogSelect &select, VELDALoggerCallback callback) {
    if ((select.deviceType & StreamDevices) != 0) return LoggerReadDevice(dp, &select, callback);
    if (select.deviceType == LogSetDevice) return read_set(dp, context, select, callback);
    errno = EINVAL;
    return nullptr;
}

bool is_end_record(const unsigned char *record) {
    return record[RecordHeader::Type] == static_cast<unsigned char>(RecordType::Eof);
}

const unsigned char *stopped(int error) {
    errno = error + SelectStopped;
    return nullptr;
}

void close_stream(DP *dp, const LogSelect &select) {
    constexpr int LastStandardStream = 2;
    if (select.fd <= LastStandardStream) return;
    if (select.deviceType == Socket)
        velda_socket_close(dp, select.fd);
    else
        VediWin32close(select.fd);
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

const unsigned char *VELDALoggerReadnext(DP *dp, LogSelect *select, VELDALoggerCallback callback) {
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) {
        VELDAfprintf(dp, stderr, "Velda Journaler not defined\n");
        return stopped(NotMapped);
    }
    const unsigned char *record = nullptr;
    do record = read_any(dp, context, *select, callback);
    while (record && is_end_record(record));
    return record ? record : stopped(errno);
}

void VELDALoggerSelectEnd(DP *dp, LogSelect **select) {
    const std::unique_ptr<LogSelect> ended(*select);
    if (ended) close_stream(dp, *ended);
    *select = nullptr;
}
