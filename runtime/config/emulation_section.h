// emulation_section.h - the sections of an emulation text. Private to the runtime.
//
//   # a comment
//   default:
//   standard:            tags that follow one another name one section
//       proc_ignore_case = 0
//   site:
//       dup = standard   the settings of another section, to be changed by those that follow
//       proc_ignore_case = 1
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "runtime/base/result.h"

namespace velda {

using EmulationSettings = std::map<std::string, std::string, std::less<>>;

// The settings of a section, named in any case; what it takes over from others is applied first, and a later line
// overrides an earlier one. An error (2) when the section, or one that it takes over, is absent; (40) when sections
// take over each other in a ring.
Result<EmulationSettings> emulation_section(std::string_view text, std::string_view section);

}  // namespace velda
