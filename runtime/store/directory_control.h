// directory_control.h - the hidden file with a directory's settings and control records.
//
// Small and rarely written: it is read and replaced as a whole. Its bytes: the magic word, then for each block the
// length of its name and of its content (4 bytes each, least significant first), the name, the content.
#pragma once

#include <map>
#include <string>

#include "runtime/base/result.h"

namespace velda::store {

using ControlBlocks = std::map<std::string, std::string>;

inline constexpr char SettingsBlock[] = "settings";
inline constexpr char DurabilityBlock[] = "durability";

std::string control_block_name(unsigned number);

// Empty when the directory has no control file. `path` is the directory's, for messages.
Result<ControlBlocks> read_control_blocks(int directory, const std::string &path);

// Replaces the control file; removes it when there are no blocks.
Result<void> write_control_blocks(int directory, const ControlBlocks &blocks, const std::string &path);

// Parses the file's bytes; false when they are damaged.
bool parse_control_blocks(std::string_view bytes, ControlBlocks &blocks);

}  // namespace velda::store
