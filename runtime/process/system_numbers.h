// system_numbers.h - who answers SYSTEM(n). Private to the runtime.
//
// The numbers of this family stand in a table in system_numbers.cpp. A number that another family knows the answer to
// is registered by that family, from a static object beside its code:
//
//   const velda::SystemNumberProvider terminal_width(2, [](DP *dp, VAR &target) { target = VAR(screen_width(dp)); });
#pragma once

#include "runtime/vdefc.h"

namespace velda {

using SystemNumber = void (*)(DP *dp, VAR &target);

// The last registration of a number holds.
void register_system_number(int number, SystemNumber provide);

struct SystemNumberProvider {
    SystemNumberProvider(int number, SystemNumber provide) { register_system_number(number, provide); }
};

// SYSTEM(n); 0 for a number that nobody answers.
VAR system_number(DP *dp, int number);

}  // namespace velda
