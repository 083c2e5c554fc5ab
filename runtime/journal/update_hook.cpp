// What the file drivers tell the journal (runtime/store/journalling.h).
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "runtime/journal/record_batch.h"
#include "runtime/journal/recovery.h"
#include "runtime/journal/under_way.h"
#include "runtime/journal/writer_state.h"
#include "runtime/process/context.h"
#include "runtime/process/process.h"
#include "runtime/store/journalling.h"
#include "runtime/store/vedi.h"

namespace velda::journal {

namespace {

using store::UpdateScope;

// The journal for the calling thread's updates; null when they stay out.
Configuration *journal_of_thread(DP *dp) {
    const UpdateScope *const scope = UpdateScope::current();
    return scope && !scope->journalled ? nullptr : journal_of_updates(dp);
}

Result<void> add_update(RecordBatch &batch, std::string_view path, const store::Update &update,
                        store::TransferMode mode) {
    const UpdateScope *const scope = UpdateScope::current();
    std::uint32_t flags = scope ? scope->flags : 0;
    if (mode == store::TransferMode::Binary) flags |= VEDI_BINARY;
    if (auto begun = batch.begin(path, update.key); !begun) return begun;
    batch.add_number(flags);
    if (!update.record) {
        batch.end(RecordType::Delete);
        return {};
    }
    batch.add_number(scope ? scope->value : 0);
    return batch.end_write(*update.record);
}

}  // namespace
}  // namespace velda::journal

namespace velda::store {

DP *updating_session() {
    const UpdateScope *const scope = UpdateScope::current();
    return scope && scope->dp ? scope->dp : velda_getdp();
}

using namespace velda::journal;

bool journal_wants_updates() { return journal_of_thread(updating_session()) != nullptr; }

JournalBatch::JournalBatch() {
    DP *const dp = updating_session();
    Configuration *const configuration = journal_of_thread(dp);
    if (!configuration) return;
    allowed_ = begin_under_way(dp, *configuration);
    if (allowed_) session_ = dp;
}

JournalBatch::~JournalBatch() {
    if (session_) end_under_way(session_->state<JournalSession>());
}

Result<void> journal_wait() {
    DP *const dp = updating_session();
    Configuration *const configuration = journal_of_thread(dp);
    if (!configuration || dp->state<JournalSession>().depth > 0) return {};
    return wait_while_held(dp, *configuration);
}

Result<void> journal_updates(std::string_view path, std::span<const Update> updates, TransferMode mode) {
    DP *const dp = updating_session();
    Configuration *const configuration = journal_of_thread(dp);
    if (!configuration) return {};
    RecordBatch batch(dp, *configuration);
    for (const Update &update : updates)
        if (auto added = add_update(batch, path, update, mode); !added) return added;
    return batch.append();
}

JournalPosition journal_position() {
    const Configuration *const configuration = journal_of_thread(updating_session());
    if (!configuration) return {};
    const VELDALoggerConfig &config = *configuration->record;
    const std::uint32_t set = config.currentSet;
    if (!is_set(set)) return {};
    const WrittenTo written = written_now(writer_state(*configuration->record));
    const std::int64_t use = config.sets[set - 1].timeFirst;
    return {use, written.time_first == use ? written.stream : 0};
}

Result<std::optional<std::vector<std::string>>> journalled_keys(std::string_view path, JournalPosition begin,
                                                                std::uint64_t end) {
    std::optional<std::vector<std::string>> keys = std::vector<std::string>();
    const Configuration *const configuration = journal_of_thread(updating_session());
    if (!configuration) return keys;
    const auto &sets = configuration->record->sets;
    const auto *const set = std::find_if(std::begin(sets), std::end(sets),
                                         [&](const LogSetInfo &its) { return its.timeFirst == begin.use; });
    if (set == std::end(sets)) return keys;
    const int number = static_cast<int>(set - std::begin(sets)) + 1;
    visit_records(*set, number, begin.stream,
                  [&](const char *header, std::string_view file, std::string_view key, std::uint64_t record_end) {
                      const auto type = static_cast<RecordType>(header[RecordHeader::Type]);
                      if (file != path) return keys->empty() && (end == 0 || record_end < end);
                      if (type == RecordType::ClearFile) keys.reset();
                      if (type == RecordType::Write || type == RecordType::Delete) keys->emplace_back(key);
                      return keys.has_value() && (end == 0 || record_end < end);
                  });
    return keys;
}

Result<void> journal_clear(std::string_view path) {
    DP *const dp = updating_session();
    Configuration *const configuration = journal_of_thread(dp);
    if (!configuration) return {};
    RecordBatch batch(dp, *configuration);
    if (auto begun = batch.begin(path, {}); !begun) return begun;
    batch.end(RecordType::ClearFile);
    return batch.append();
}

}  // namespace velda::store
