// under_way.h - sessions that a change of set or status waits for: their appends go through although writers are held.
// Private to the folder.
#pragma once

#include "runtime/base/result.h"
#include "runtime/journal/configuration.h"

namespace velda::journal {

// Counts the session as under way; each begin has its end. The first waits while writers are held. An error when that
// wait was interrupted.
Result<void> begin_under_way(DP *dp, Configuration &configuration);
void end_under_way(JournalSession &session);
// Ends it at once, however deep it was. A slot of a forked child's parent is left alone.
void abandon_slot(JournalSession &session);

// While on, the session is between the records of a transaction's start and end. It is under way.
void mark_transaction(JournalSession &session, bool on);
// Whether a living session is.
bool is_transaction_under_way(WriterState &state);

// Waits until no other session is under way. What dead processes left is cleared.
void wait_for_sessions_under_way(const JournalSession &caller, Configuration &configuration);

// Waits while the status is suspended, which an interrupt of the session may end. A change of set that its process did
// not live to finish is finished here.
Result<void> wait_while_held(DP *dp, Configuration &configuration);

}  // namespace velda::journal
