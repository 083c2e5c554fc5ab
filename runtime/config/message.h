// message.h - texts of the system's message file. Private to the runtime.
//
// The file is `messages` in the release directory, a text:
//
//   # a comment; empty lines are skipped
//   201 Cannot open file '%1'
//
// A line is a key, blanks, and the text. In the text %1 to %9 stand for the message's parameters, %* for all of them
// divided by blanks, %% for a percent sign, and \n for a line break. A parameter that the message does not have is
// empty. A key that stands twice has its last text.
#pragma once

#include <string>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

// The text of a message: `message` is a key and its parameters separated by VM (or AM, as the tape and background
// families write it), or plain text. A key that the message file lacks gives the key and its parameters separated by
// blanks, never nothing. A message file that cannot be read is told once on standard error.
std::string format_message(DP *dp, std::string_view message);

// Puts the parameters into a text of the message file. `parameters` are divided by VM.
std::string expand_message(std::string_view text, std::string_view parameters);

}  // namespace velda
