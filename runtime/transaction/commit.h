// commit.h - how the updates of a transaction are made. Private to the folder.
#pragma once

#include "runtime/transaction/held_updates.h"
#include "runtime/vdefc.h"

namespace velda::transaction {

// Makes all updates, or none and gives the error.
Result<void> make_updates(DP *dp, const HeldUpdates &held);

}  // namespace velda::transaction
