#include "runtime/process/stop.h"

namespace velda {

// The destructors are the classes' key functions: one type_info each, in this library, for every library that throws.
CommandStop::~CommandStop() = default;
CommandExit::~CommandExit() = default;
CommandChain::~CommandChain() = default;

}  // namespace velda
