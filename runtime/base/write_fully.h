// write_fully.h - a write(2) that writes all.
#pragma once

#include <string_view>

namespace velda {

// Writes all of `bytes` to an open file, a pipe or a terminal, going on after interruptions and waiting while it would
// block. Returns 0 or the error number.
int write_fully(int file, std::string_view bytes);

}  // namespace velda
