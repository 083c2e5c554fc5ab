// settings_text.h - a file's settings as text: a dynamic array of words such as "LOG=NO", one an attribute. Both
// drivers keep it as a control record.
#pragma once

#include <string>
#include <string_view>

#include "runtime/store/driver.h"

namespace velda::store {

// Durability is left out: each driver keeps it where it is needed first.
std::string settings_text(const FileSettings &settings);

// Words that are not known become options, so that an older runtime keeps what a newer one wrote.
FileSettings parse_settings_text(std::string_view text, Durability durability);

}  // namespace velda::store
