#include "runtime/port/session_port.h"

#include <cerrno>
#include <cstdlib>
#include <thread>

#include "runtime/lock/session_owner.h"
#include "runtime/port/port_range.h"
#include "runtime/process/context.h"

namespace velda {

namespace {

using lock::Attempt;
using lock::LockName;
using lock::SessionOwner;
using port::PortRange;

// Sessions of people first; above them room for other systems' habits: background tasks and the spooler name theirs.
constexpr const char *DefaultPorts = "1-999,10000-99999";

Result<std::vector<PortRange>> allowed_ports() {
    const char *named = getenv("VBCPORTNO");
    auto ranges = port::parse_port_ranges(named && *named ? named : DefaultPorts);
    if (!ranges) return Error{ranges.error().number, "VBCPORTNO: " + ranges.error().message};
    return ranges;
}

Attempt try_port(SessionOwner &session, int number) {
    return session.table().take(session.owner(), {LockKind::Port, {}, std::to_string(number)});
}

Error all_in_use(const std::vector<PortRange> &ranges, const LockOwner &holder) {
    const bool single = ranges.size() == 1 && ranges[0].first == ranges[0].last;
    if (single)
        return {EADDRINUSE, "port number " + std::to_string(ranges[0].first) + " is in use by process " +
                                std::to_string(holder.pid) + ": end it, or set VBCPORTNO to another port or a range"};
    std::string text;
    for (const PortRange &range : ranges) {
        if (!text.empty()) text += ",";
        text += std::to_string(range.first);
        if (range.last != range.first) text += "-" + std::to_string(range.last);
    }
    return {EADDRINUSE, "all port numbers of " + text + " are in use: set VBCPORTNO to a wider range"};
}

Result<int> take_port(SessionOwner &session) {
    const auto ranges = allowed_ports();
    if (!ranges) return ranges.error();
    LockOwner holder;
    for (const PortRange &range : *ranges) {
        for (int number = range.first; number <= range.last; ++number) {
            Attempt attempt = try_port(session, number);
            if (attempt.result == LockResult::Granted) return number;
            if (attempt.result == LockResult::Failed) return attempt.error;
            holder = attempt.holder_shown;
        }
    }
    return all_in_use(*ranges, holder);
}

}  // namespace

Result<int> session_port(DP *dp) {
    SessionOwner &session = dp->state<SessionOwner>();
    if (auto ready = session.make_ready(); !ready) return ready.error();
    if (session.port_taken) return session.owner().slot->port.load(std::memory_order_relaxed);
    const auto number = take_port(session);
    if (!number) return number;
    session.owner().slot->port = *number;
    session.port_taken = true;
    return number;
}

}  // namespace velda
