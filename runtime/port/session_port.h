// session_port.h - the port of a session, as the runtime's other families see it. Private to the runtime.
//
// A port number belongs to one context of one process of the system, from its first need until the context ends or its
// thread dies; the lock table proves it. While a session has a port, the directory of the process records holds its
// status record under that number.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/vdefc.h"

namespace velda {

// The context's port number, taken now when it has none: the first free one of the environment variable VBCPORTNO, a
// list such as "5" or "100-199,300", or of the default ranges. An error names the ports and, when there is only one,
// who has it.
Result<int> session_port(DP *dp);

}  // namespace velda
