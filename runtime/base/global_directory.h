// global_directory.h - the directory that makes a system: ports, locks, messages and logs of one system lie below it.
#pragma once

#include <string>

#include "runtime/base/result.h"

namespace velda {

// The absolute path of the global directory: the environment variable VELDAGLOBALDIR, else /var/lib/velda for the
// superuser and $HOME/.velda for everyone else. The directory need not exist.
std::string global_directory();

// The path of directory `name` below the global directory. It and the global directory are made when they are missing,
// `name` with the permissions of the global directory, so that whoever may use the system may use its parts.
Result<std::string> global_subdirectory(const std::string &name);

// The same below any directory, which must exist.
Result<std::string> shared_subdirectory(const std::string &parent, const std::string &name);

// Gives an open file the group and the permissions of a directory, less the right to search, whatever the process's
// mask: who may use the directory may use the file. What the process may not give stays as it is.
void share_like_directory(int file, const std::string &directory);

}  // namespace velda
