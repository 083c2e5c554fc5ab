// Entries of the journal that append records which are no updates of a record.
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>

#include "runtime/journal/journal.h"
#include "runtime/journal/record_batch.h"
#include "runtime/journal/sync.h"
#include "runtime/journal/under_way.h"
#include "runtime/journal/writer_state.h"
#include "runtime/process/context.h"
#include "runtime/value/value.h"

namespace velda::journal {

namespace {

// Readers tell the transactions of one process apart by nothing: one at a time. A forked child is another process, and
// has nobody who would give back the turn of its parent's sessions.
std::mutex &transaction_turn() {
    static std::atomic<std::mutex *> turn{new std::mutex};
    static const int registered = pthread_atfork(nullptr, nullptr, [] { turn.store(new std::mutex); });
    (void)registered;
    return *turn.load();
}

// A transaction's text stands where other records have their key, so it ends at a mark.
std::string_view plain_text(const VAR *text) {
    const std::string_view all = text ? text->view() : std::string_view();
    const auto mark =
        std::find_if(all.begin(), all.end(), [](char byte) { return static_cast<unsigned char>(byte) >= 0xFE; });
    return all.substr(0, static_cast<std::size_t>(mark - all.begin()));
}

Result<void> append_transaction_record(DP *dp, RecordType type, const VAR *text) {
    Configuration *const configuration = journal_of_updates(dp);
    if (!configuration) return {};
    RecordBatch batch(dp, *configuration);
    if (auto begun = batch.begin({}, plain_text(text)); !begun) return begun;
    batch.add_long(dp->serial);
    batch.add_bytes(std::string_view("\0", 1));
    batch.add_long(0);
    batch.end(type, {}, type == RecordType::TranStart ? 0 : FlushDevice);
    return batch.append();
}

void give_turn_back(JournalSession &session) {
    session.in_transaction = false;
    mark_transaction(session, false);
    transaction_turn().unlock();
}

void leave_transaction(JournalSession &session) {
    give_turn_back(session);
    if (session.is_under_way_with_transaction) end_under_way(session);
}

// A transaction that began without a journal stays out of it: there is a turn to give back all the same.
int start_transaction(DP *dp, const VAR *text, std::uint64_t update_bytes) {
    auto &session = dp->state<JournalSession>();
    Configuration *const configuration = journal_of_updates(dp);
    if (configuration)
        if (const int error = number_of(dp, begin_under_way(dp, *configuration))) return error;
    transaction_turn().lock();
    session.in_transaction = true;
    session.is_under_way_with_transaction = configuration != nullptr;
    mark_transaction(session, true);
    auto started = configuration && update_bytes > 0 ? secure_room(dp, *configuration, update_bytes) : Result<void>();
    if (started) started = append_transaction_record(dp, RecordType::TranStart, text);
    if (!started) leave_transaction(session);
    return number_of(dp, started);
}

int end_transaction(DP *dp, RecordType type, const VAR *text) {
    auto &session = dp->state<JournalSession>();
    if (!session.in_transaction) return errno = EPERM;
    auto appended = append_transaction_record(dp, type, text);
    // The next one of this process can be written meanwhile: then one sync is for both. A change of set still waits.
    give_turn_back(session);
    Configuration *const configuration = journal_of_updates(dp);
    if (appended && configuration && configuration->record->syncTransactions != 0)
        appended = sync_journal(dp, *configuration, SyncReason::TransactionEnd);
    if (session.is_under_way_with_transaction) end_under_way(session);
    return number_of(dp, appended);
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

void velda_logger_set_replay(DP *dp, int on) { dp->state<JournalSession>().stays_out = on != 0; }

void velda_logger_set_source(DP *dp, const char *file, const char *line) {
    SessionTexts &texts = dp->state<JournalSession>().texts;
    texts.source_file = file ? file : "";
    texts.source_line = line ? line : "";
}

int64_t velda_logger_last_sync(DP *dp) {
    const Configuration *const configuration = configuration_or_null(dp);
    return configuration ? writer_state(*configuration->record).last_sync : 0;
}

int velda_logger_transaction_abort_dead(DP *dp, int pid, int port) {
    auto &session = dp->state<JournalSession>();
    const std::int32_t own_port = std::exchange(session.port, port);
    session.stands_for = pid;
    const int error = number_of(dp, append_transaction_record(dp, RecordType::TranAbort, nullptr));
    session.stands_for = 0;
    session.port = own_port;
    return error;
}

int velda_logger_transaction_start(DP *dp, const VAR *text, uint64_t update_bytes) {
    auto &session = dp->state<JournalSession>();
    if (session.in_transaction) return errno = EPERM;
    return start_transaction(dp, text, update_bytes);
}

int velda_logger_transaction_end(DP *dp, const VAR *text) { return end_transaction(dp, RecordType::TranEnd, text); }

int velda_logger_transaction_abort(DP *dp, const VAR *text) { return end_transaction(dp, RecordType::TranAbort, text); }
