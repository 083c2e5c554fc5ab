// environment_table.h - the hashed files that this process has open, each once, and the housekeeper that looks after
// them.
#pragma once

#include <functional>
#include <memory>

#include "runtime/store/environment.h"

namespace velda::store {

// The environment of the file at `path` (absolute, no symbolic links): opened, or shared when it is open already.
Result<std::shared_ptr<Environment>> acquire_environment(const std::string &path);

// --- the housekeeper: a thread of the process that lets go of snapshots and syncs lazy files ---

// A reader keeps a snapshot: the housekeeper lets go of it soon. Costs one load when it knows already.
void watch_snapshots();
// A lazy file has updates that are not on disk.
void watch_updates();

}  // namespace velda::store
