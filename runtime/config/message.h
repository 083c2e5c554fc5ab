// message.h - texts of the system's message file. Private to the runtime.
#pragma once

#include <string>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

// The text of a message: `message` is a key and its parameters separated by VM, or plain text. A key that the message
// file lacks gives the key and its parameters separated by blanks, never nothing.
std::string format_message(DP *dp, std::string_view message);

}  // namespace velda
