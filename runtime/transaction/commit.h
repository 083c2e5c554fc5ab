// commit.h - how the updates of a transaction are made. Private to the folder.
#pragma once

#include "runtime/transaction/finish.h"
#include "runtime/transaction/held_updates.h"
#include "runtime/vdefc.h"

namespace velda::transaction {

// What is left to do for a session whose updates could neither all be made nor all be taken back.
enum class Left { Nothing, Redo };

// Makes all updates, or none and gives the error. `left` tells whether its redo record still stands: then the files are
// as the record will make them only once finish_own_commit has succeeded, and the records must stay locked until then.
Result<void> make_updates(DP *dp, const HeldUpdates &held, const Remarks &remarks, Left &left);

// Tries again to finish the session's commit.
Result<void> finish_own_commit(DP *dp);

}  // namespace velda::transaction
