// checkpoint.h - records that mark moments at which no transaction is part way. Private to the folder.
#pragma once

#include <cstdint>
#include <string>

#include "runtime/journal/config_record.h"
#include "runtime/journal/writer_state.h"

namespace velda::journal {

// Whether a checkpoint is to be put in front of an append at `now`. Called under the append lock.
bool is_checkpoint_due(VELDALoggerConfig &config, const LogSetInfo &set, std::int64_t now);

// Strings and payload of its record: the number of records in front of it, then an array of three attributes: a name,
// its time and that of the checkpoint before (0 for none) as 8-byte numbers.
inline constexpr std::string_view CheckpointStrings = "\xFE\xFE\xFE\xFE\xFE";
std::string checkpoint_body(const LogSetInfo &set, std::int64_t now, std::int32_t before);

}  // namespace velda::journal
