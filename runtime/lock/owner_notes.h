// owner_notes.h - the text that an owner shows of itself, written by it alone and read by anyone without a lock.
// Private to the folder.
#pragma once

#include <string>
#include <string_view>

#include "runtime/lock/lock_layout.h"

namespace velda::lock {

// Longer text is cut.
void write_notes(OwnerNotes &notes, std::string_view text);

// The text as it was at one instant. When the writer died in the middle of a change, or changes it all the time, "".
std::string read_notes(const OwnerNotes &notes);

}  // namespace velda::lock
