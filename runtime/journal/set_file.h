// set_file.h - bytes of the files of a set that do not go through the writer of records. Private to the runtime.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/journal/config_record.h"
#include "runtime/vdefc.h"

namespace velda::journal {

// Writes bytes at an offset of file `file` (from 1) of a set and makes them durable. 0 or an error number: 2 without a
// journal or when there is no such file, 22 for numbers or an offset out of range.
int write_set_file(DP *dp, int set, int file, std::int64_t offset, std::string_view bytes);

// Makes what was written to the files of a set durable. Every file is tried; the first error is the result.
int sync_set(const LogSetInfo &set);

}  // namespace velda::journal
