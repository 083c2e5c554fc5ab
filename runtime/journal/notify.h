// notify.h - starting the administration log's notify program. Private to the folder.
#pragma once

#include <string>

namespace velda::journal {

// Starts a shell command with two words added, without terminal and output, and does not wait for it. A command that
// cannot be started is left out: the entry it would have told of is in the log.
void start_notify_program(const std::string &command, int severity, const std::string &entry);

}  // namespace velda::journal
