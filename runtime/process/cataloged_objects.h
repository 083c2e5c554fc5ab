// cataloged_objects.h - the shared objects of cataloged subroutines, in the directories that VBCDEV_LIB names (divided
// by
// ":"). Private to the runtime.
#pragma once

#include <string>

#include "runtime/process/process.h"

namespace velda {

// The address of a symbol in the cataloged shared objects, null when none has it. The objects (*.so) of a directory are
// loaded, in the order of their names, at the first look-up that the process itself cannot answer, and again when the
// directory has changed. An object that cannot be loaded is reported once on standard error and left out.
VELDASubroutine find_cataloged_symbol(const std::string &symbol);

}  // namespace velda
