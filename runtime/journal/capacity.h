// capacity.h - warnings that the current set runs out of space. Private to the folder.
#pragma once

#include <cstdint>
#include <optional>

#include "runtime/journal/config_record.h"
#include "runtime/journal/writer_state.h"

namespace velda::journal {

// The percentage to warn of now, by the three thresholds of the configuration; nullopt for no warning. Called under the
// append lock with the time of the append; `is_new_row` when it began a row of blocks.
std::optional<int> capacity_warning(const VELDALoggerConfig &config, const LogSetInfo &set, SpaceWarning &warned,
                                    std::int64_t now, bool is_new_row);

}  // namespace velda::journal
