// set_file.h - the files of a set outside of the writer: their paths, and bytes that are no records. Private to the
// runtime.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "runtime/journal/config_record.h"
#include "runtime/vdefc.h"

namespace velda::journal {

// Writes bytes at an offset of file `file` (from 1) of a set and makes them durable. 0 or an error number: 2 without a
// journal or when there is no such file, 22 for numbers or an offset out of range.
int write_set_file(DP *dp, int set, int file, std::int64_t offset, std::string_view bytes);

// The path of a file of a set. Its field need not be zero-ended when its bytes are damaged.
std::string path_of(const LogFileEntry &entry);

}  // namespace velda::journal
