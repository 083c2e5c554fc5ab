// message_queue.h - the messages that wait for a port: one file each in a directory of the port. Private to the folder.
//
// Files, because a sender must never wait for a receiver, and what was sent must be there when the receiver is busy for
// an hour. The names order them by the time of sending.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"

namespace velda::port {

inline constexpr std::size_t MaxMessageBytes = std::size_t{1} << 20;
inline constexpr std::size_t MaxWaitingMessages = 1000;

// Drops what waits: the session has ended, or it begins and is not whom this was sent to.
void remove_queue(int port);

Result<void> put_message(int port, std::string_view text);
// All that wait, oldest first; they are removed.
std::vector<std::string> take_queue(int port);

}  // namespace velda::port
