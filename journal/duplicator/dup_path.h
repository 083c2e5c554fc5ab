// dup_path.h - which names from the journal replay acts on. Private to the duplicator.
#pragma once

#include <string>
#include <string_view>

#include "journal/duplicator/duplicator.h"

namespace velda::journal {

// Whether a part of the name is "..". The writer of a journal never makes such a name, since it knows files by their
// absolute paths: one that has it was forged or damaged.
bool climbs(std::string_view name);

// Whether replay must not act on a name: one that climbs, or goes on behind a zero byte. `path` is as it is here, with its
// renames.
bool is_refused(std::string_view path);
// Tells of such a name, or of an empty one where a name has to be.
void report_refusal(DP *dp, const std::string &path, const unsigned char *record);

}  // namespace velda::journal
