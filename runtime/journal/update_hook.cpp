// What the file drivers tell the journal (runtime/store/journalling.h).
#include <cstdint>
#include <vector>

#include "runtime/journal/record_batch.h"
#include "runtime/journal/under_way.h"
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
