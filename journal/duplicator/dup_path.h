// dup_path.h - which names from the journal replay acts on. Private to the duplicator.
#pragma once

#include <string>
#include <string_view>

#include "journal/duplicator/duplicator.h"

namespace velda::journal {

// Whether a part of the name is "..". The writer of a journal never makes such a name, since it knows files by their
// absolute paths: one that has it was forged or damaged.
bool climbs(std::string_view name);

// False, after a report, for a name that replay must not act on. `path` is as it is here, with its renames.
bool is_usable_path(DP *dp, const std::string &path, const unsigned char *record);

}  // namespace velda::journal
