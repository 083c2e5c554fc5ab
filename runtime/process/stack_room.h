// stack_room.h - how much of the thread's stack is left: endless recursion ends the command, not the process. Private
// to the runtime.
#pragma once

namespace velda {

// True when so little of the calling thread's stack is left that no further call should begin.
bool stack_nearly_full();

}  // namespace velda
