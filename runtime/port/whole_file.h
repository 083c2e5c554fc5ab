// whole_file.h - small files that are written and read as a whole. Private to the folder.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "runtime/base/result.h"

namespace velda::port {

// Writes beside the system's directories and renames, so that the file is there with all its bytes or not at all. It
// gets the permissions of its directory, less the right to search.
Result<void> write_whole_file(const std::string &path, std::string_view bytes);

// The file's bytes; nullopt when there is no such file or it cannot be read.
std::optional<std::string> read_whole_file(const std::string &path);

}  // namespace velda::port
