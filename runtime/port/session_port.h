// session_port.h - the port of a session, as the runtime's other families see it. Private to the runtime.
//
// A port number belongs to one context of one process of the system, from its first need until the context ends or its
// thread dies; the lock table proves it. While a session has a port, the directory of the process records holds its
// status record under that number, and other sessions can send it messages.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/lock/record_lock.h"
#include "runtime/vdefc.h"

namespace velda {

// The context's port number, taken now when it has none: the first free one of the environment variable VBCPORTNO, a
// list such as "5" or "100-199,300", or of the default ranges. An error names the ports and, when there is only one,
// who has it.
Result<int> session_port(DP *dp);

// The same for callers without an error path: -1 when no port can be had, after the reason was printed, once a context.
int session_port_or_report(DP *dp);

// The living owner of a port; nullopt when nobody has it.
std::optional<LockOwner> port_owner(DP *dp, int port);

// The directory of the process records, SYSTEM(1027), made when it is missing. Asking for it brings it up to date: each
// living session has its record there as it shows itself now, the records of the dead are gone.
Result<std::string> port_directory(DP *dp);

// Shows `text` as the session's current command; the session takes its port if it has none. Costs a few microseconds.
void port_set_command(DP *dp, std::string_view text);

// Puts a message into the queue of a port, in at most a few file operations whatever that session is doing. Error 3
// when nobody has the port, 7 when the text has more than a megabyte, 11 when 1,000 messages wait there already.
Result<void> send_message(DP *dp, int port, std::string_view text);

// Takes what was sent to this session, oldest first, as texts to be shown: the word "VMSG:" in front is dropped. Costs
// one look at memory when nothing came.
std::vector<std::string> take_messages(DP *dp);

// True when messages wait. Moves dp->event_counter when some arrived since it was last asked.
bool messages_wait(DP *dp);

}  // namespace velda
