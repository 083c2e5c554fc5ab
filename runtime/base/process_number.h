// process_number.h - the process's number without a system call. Private to the runtime.
#pragma once

#include <sys/types.h>

namespace velda {

pid_t process_number();

}  // namespace velda
