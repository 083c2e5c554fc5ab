// compare.h - the order of values. Private to the runtime.
#pragma once

#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

// Below, at or above 0 as `left` stands before, at or behind `right`: by value when both are numeric, else byte by
// byte.
int compare_values(const VAR &left, const VAR &right);

// Byte by byte, a shorter text before a longer one that it begins.
int compare_bytes(std::string_view left, std::string_view right);

}  // namespace velda
