// release_directory.h - where the system's own files are. Private to the runtime.
#pragma once

#include <string>

namespace velda {

// The release directory, SYSTEM(1011): message file, emulation settings, form types. The environment variable
// VBCRELEASEDIR, else the place that the system was installed to.
std::string release_directory();

}  // namespace velda
