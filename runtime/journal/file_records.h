// file_records.h - records about whole files and directories. Private to the folder.
//
// Each function appends one record in the name of the session, and nothing when the session's updates are not journalled
// at present. It waits while the journal is suspended.
#pragma once

#include <string_view>

#include "runtime/base/result.h"
#include "runtime/journal/configuration.h"
#include "runtime/journal/record_batch.h"

namespace velda::journal {

// A directory that was made, with its owner and mode.
Result<void> journal_directory(DP *dp, const char *path);

// Builds one batch with `build(batch)` and appends it, as often as it takes to find the journal not suspended.
template <class Build>
Result<void> append_batch(DP *dp, Build &&build);

// As append_batch, but an error store::JournalSuspended instead of a wait: for callers that hold a turn.
template <class Build>
Result<void> append_batch_now(DP *dp, Build &&build) {
    Configuration *const configuration = journal_of_updates(dp);
    if (!configuration) return {};
    RecordBatch batch(dp, *configuration);
    if (Result<void> built = build(batch); !built) return built;
    return batch.append();
}

// Waits until an append of the session may go through.
Result<void> wait_for_append_leave(DP *dp);
bool is_asked_again(const Result<void> &appended);

template <class Build>
Result<void> append_batch(DP *dp, Build &&build) {
    for (;;) {
        if (auto may_go = wait_for_append_leave(dp); !may_go) return may_go;
        auto appended = append_batch_now(dp, build);
        if (!is_asked_again(appended)) return appended;
    }
}

}  // namespace velda::journal
