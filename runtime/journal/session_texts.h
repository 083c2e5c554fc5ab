// session_texts.h - the strings area of a record. Private to the folder.
#pragma once

#include <string>
#include <string_view>

#include "runtime/base/result.h"
#include "runtime/journal/config_record.h"
#include "runtime/vdefc.h"

namespace velda::journal {

// Appends the strings area: the file's name, the record's key and, when the configuration asks for extended records,
// what is known of the session and its program. Error 22 for a name or key that holds a mark, which no reader could
// tell from the field's end.
Result<void> add_strings(std::string &target, DP *dp, const VELDALoggerConfig &config, std::string_view file_name,
                         std::string_view key);

}  // namespace velda::journal
