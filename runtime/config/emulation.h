// emulation.h - the numbers, names and defaults of the emulation settings. Private to the runtime.
#pragma once

#include <span>
#include <string_view>

namespace velda {

struct EmulationSetting {
    int number;             // as the logic asks for it
    std::string_view name;  // as it stands in the emulation file
    int default_value;
};

// All settings, in the order of their numbers.
std::span<const EmulationSetting> emulation_settings();

}  // namespace velda
