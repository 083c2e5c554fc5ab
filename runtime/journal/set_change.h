// set_change.h - what the writers' side of a change of set or status is. Private to the folder.
#pragma once

#include "runtime/base/result.h"
#include "runtime/journal/configuration.h"

namespace velda::journal {

// Holds the writers of all processes by the suspended status and waits for those under way. What was before is kept for
// release_writers, or for whoever finds the change abandoned. The caller has the change lock.
void hold_writers(DP *dp, Configuration &configuration);
void release_writers(Configuration &configuration);

// Finishes or takes back a change of set whose process died while it held the writers. Does nothing while somebody has
// the change lock.
void finish_abandoned_change(DP *dp, Configuration &configuration);

// Stores a status that an operator gives. When it returns nobody appends any more, unless the status is active. The
// caller has the change lock.
void change_status(DP *dp, Configuration &configuration, std::uint32_t status);

// Whether the current set ends with its EOF record, so that nothing may be appended until it is changed.
bool is_current_set_closed(const Configuration &configuration);

// Puts the EOF record at the end of the current set and makes the set durable. The record counts once the set is no
// longer current; if it stays, the next append takes its place.
Result<void> close_current_set(DP *dp, Configuration &configuration);

// A stamp for the next use of a set: later than those of all sets and their records.
std::int64_t next_use_time(const VELDALoggerConfig &config);

}  // namespace velda::journal
