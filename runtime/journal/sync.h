// sync.h - making the journal durable: one sync for all who wait. Private to the folder.
#pragma once

#include "runtime/base/result.h"
#include "runtime/journal/configuration.h"

namespace velda::journal {

// What asks for a sync: counted in the statistics of the configuration.
enum class SyncReason { Time, TransactionEnd };

// Returns when everything that was appended before the call is on disk.
Result<void> sync_journal(DP *dp, Configuration &configuration, SyncReason reason);

// Called after each append: from then on this process takes care that a sync comes within the configured time.
void watch_unsynced(Configuration &configuration);

}  // namespace velda::journal
