// call_by_name.h - finding and calling a subroutine of which only the name is known. Private to the runtime.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "runtime/process/process.h"
#include "runtime/vdefc.h"

namespace velda {

// The symbol under which a subroutine of that name is exported: "VBC_" and the name, "_" written _5F and "-" written
// _2D.
std::string subroutine_symbol(std::string_view name);

// The address of the subroutine, null when there is none: first in what the process has loaded, then in the cataloged
// shared objects, which are loaded as they are needed.
VELDASubroutine find_subroutine(std::string_view name);

// Calls it with these cells. When there is none, or with more cells than a subroutine can take, the command ends with
// the message SUBROUTINE_CALL_FAIL.
void call_by_name(DP *dp, std::string_view name, std::span<VAR *const> arguments);

// Calls the subroutine at `address`, whose letters are "V" for each cell.
void call_subroutine(DP *dp, VELDASubroutine address, std::span<VAR *const> arguments);

}  // namespace velda
