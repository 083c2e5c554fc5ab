#include "runtime/port/session_port.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "runtime/base/global_directory.h"
#include "runtime/lock/session_owner.h"
#include "runtime/port/message_queue.h"
#include "runtime/port/port_range.h"
#include "runtime/port/status_record.h"
#include "runtime/process/context.h"
#include "runtime/process/output.h"

namespace velda {

namespace {

using lock::Attempt;
using lock::LockName;
using lock::SessionOwner;
using port::PortRange;

// Low numbers for people at terminals, then many more above those that background tasks and the spooler name for
// themselves.
constexpr const char *DefaultPorts = "1-999,10000-99999";

constexpr std::string_view ShownMessage = "VMSG:";

// How often a port whose holder is just clearing up after a dead session is tried again, a millisecond apart.
constexpr int ClearingTries = 200;

// The record and the messages of a port.
void remove_files(int number) {
    unlink((global_directory() + "/ports/" + std::to_string(number)).c_str());
    port::remove_queue(number);
}

// What a context keeps of its port. Its records go when it does.
class PortSession {
  public:
    explicit PortSession(DP &dp) : owner_(dp.state<SessionOwner>()) {}
    ~PortSession() {
        if (!is_open()) return;
        if (const auto directory = global_subdirectory("ports"))
            unlink((*directory + "/" + std::to_string(port_)).c_str());
        port::remove_queue(port_);
    }
    PortSession(const PortSession &) = delete;
    PortSession &operator=(const PortSession &) = delete;

    void open(DP *dp, int port) {
        port_ = port;
        owner_id_ = owner_.owner().id;
        remove_files(port);
        status_ = port::new_status(dp, port);
        owner_.table().set_notes(owner_.owner(), status_);
        owner_.owner().slot->port = port;
        owner_.port_taken = true;
        messages_noted = messages_taken = owner_.owner().slot->message_count;
    }
    void show_command(std::string_view text) {
        status_ = port::with_command(status_, text);
        owner_.table().set_notes(owner_.owner(), status_);
    }
    // A forked child's copy is not: its owner is another.
    bool is_open() const { return owner_.port_taken && owner_.is_ready() && owner_.owner().id == owner_id_; }
    int port() const { return port_; }
    SessionOwner &owner() { return owner_; }
    std::atomic<std::uint32_t> &message_count() { return owner_.owner().slot->message_count; }

    std::uint32_t messages_taken = 0;  // message_count when the queue was last emptied
    std::uint32_t messages_noted = 0;  // message_count when the event counter was last moved
    bool failure_reported = false;

  private:
    SessionOwner &owner_;
    lock::OwnerId owner_id_ = 0;
    int port_ = -1;
    std::string status_;
};

LockName name_of(const std::string &number) { return {LockKind::Port, {}, number}; }

Result<std::vector<PortRange>> allowed_ports() {
    const char *named = getenv("VBCPORTNO");
    auto ranges = port::parse_port_ranges(named && *named ? named : DefaultPorts);
    if (!ranges) return Error{ranges.error().number, "VBCPORTNO: " + ranges.error().message};
    return ranges;
}

bool is_single(const std::vector<PortRange> &ranges) { return ranges.size() == 1 && ranges[0].first == ranges[0].last; }

Error all_in_use(const std::vector<PortRange> &ranges, const LockOwner &holder) {
    if (is_single(ranges))
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

Attempt try_port(SessionOwner &owner, int number) {
    return owner.table().take(owner.owner(), name_of(std::to_string(number)));
}

// A holder that is not the session of that port holds it only for a moment: it clears up (remove_dead_record), or it
// has just taken it.
Attempt insist_on_port(SessionOwner &owner, int number) {
    Attempt attempt = try_port(owner, number);
    for (int tries = 0;
         attempt.result == LockResult::Busy && attempt.holder_shown.port != number && tries < ClearingTries; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        attempt = try_port(owner, number);
    }
    return attempt;
}

Result<int> take_port(SessionOwner &owner) {
    const auto ranges = allowed_ports();
    if (!ranges) return ranges.error();
    const auto take = is_single(*ranges) ? insist_on_port : try_port;
    LockOwner holder;
    for (const PortRange &range : *ranges) {
        for (int number = range.first; number <= range.last; ++number) {
            Attempt attempt = take(owner, number);
            if (attempt.result == LockResult::Granted) return number;
            if (attempt.result == LockResult::Failed) return attempt.error;
            holder = attempt.holder_shown;
        }
    }
    return all_in_use(*ranges, holder);
}

std::optional<int> number_of(const std::string &name) {
    int number = 0;
    const auto [end, failed] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (failed != std::errc() || end != name.data() + name.size()) return std::nullopt;
    return number;
}

store::FileIdentity identity_of(const std::string &directory) {
    struct stat status;
    if (stat(directory.c_str(), &status) != 0) return {};
    return {status.st_dev, status.st_ino};
}

// Holds the port while its files go, so that they are not those of a session that takes the port just now.
void remove_dead_record(SessionOwner &owner, int number) {
    const std::string key = std::to_string(number);  // the name refers to it
    const LockName name = name_of(key);
    if (owner.table().holder(name)) return;
    const Attempt attempt = owner.table().take(owner.owner(), name);
    if (attempt.result != LockResult::Granted || attempt.was_held) return;
    remove_files(number);
    owner.table().release(owner.owner(), name);
}

// The record as the session shows itself now, if it shows itself at all.
void write_record(SessionOwner &owner, const std::string &directory, int number, const std::string &status) {
    const std::string key = std::to_string(number);
    if (port::status_attribute(status, port::StatusPort) != key) return;
    const std::string record = port::read_status_record(directory, number);
    if (port::merged(record, status) == record) return;
    // Who changes the record holds its lock: then it stays as it is for now.
    const LockName name{LockKind::Record, identity_of(directory), key};
    const Attempt attempt = owner.table().take(owner.owner(), name);
    if (attempt.result != LockResult::Granted) return;
    [[maybe_unused]] const auto written =
        port::write_status_record(directory, number, port::merged(port::read_status_record(directory, number), status));
    if (!attempt.was_held) owner.table().release(owner.owner(), name);
}

std::string text_to_show(std::string message) {
    return message.starts_with(ShownMessage) ? message.substr(ShownMessage.size()) : message;
}

}  // namespace

Result<int> session_port(DP *dp) {
    PortSession &session = dp->state<PortSession>();
    if (session.is_open()) return session.port();
    if (auto ready = session.owner().make_ready(); !ready) return ready.error();
    const auto number = take_port(session.owner());
    if (!number) return number;
    session.open(dp, *number);
    return number;
}

int session_port_or_report(DP *dp) {
    const auto number = session_port(dp);
    if (number) return *number;
    dp->last_error = number.error().number;
    PortSession &session = dp->state<PortSession>();
    if (!session.failure_reported) write_output(dp, number.error().message + "\n");
    session.failure_reported = true;
    return -1;
}

std::optional<LockOwner> port_owner(DP *dp, int number) {
    SessionOwner &owner = dp->state<SessionOwner>();
    if (auto ready = owner.make_ready(); !ready) return std::nullopt;
    const auto id = owner.table().holder(name_of(std::to_string(number)));
    if (!id) return std::nullopt;
    const LockOwner found = owner.table().shown(*id);
    return found.port == number ? std::optional(found) : std::nullopt;
}

Result<std::string> port_directory(DP *dp) {
    const auto directory = global_subdirectory("ports");
    if (!directory) return directory;
    SessionOwner &owner = dp->state<SessionOwner>();
    if (auto ready = owner.make_ready(); !ready) return ready.error();
    for (const lock::OwnerId id : owner.table().owners()) {
        if (const int number = owner.table().shown(id).port; number >= 0)
            write_record(owner, *directory, number, owner.table().notes_of(id));
    }
    std::error_code failed;
    for (const auto &entry : std::filesystem::directory_iterator(*directory, failed)) {
        if (const auto number = number_of(entry.path().filename())) remove_dead_record(owner, *number);
    }
    return directory;
}

void port_set_command(DP *dp, std::string_view text) {
    if (session_port(dp)) dp->state<PortSession>().show_command(text);
}

Result<void> send_message(DP *dp, int number, std::string_view text) {
    SessionOwner &owner = dp->state<SessionOwner>();
    if (auto ready = owner.make_ready(); !ready) return ready.error();
    const auto id = owner.table().holder(name_of(std::to_string(number)));
    if (!id || owner.table().shown(*id).port != number)
        return Error{ESRCH, "port " + std::to_string(number) + " is not logged on"};
    if (auto put = port::put_message(number, text); !put) return put;
    // After the message: who sees the count finds it.
    std::atomic<std::uint32_t> &count = owner.table().slot_of_owner(*id)->message_count;
    count.fetch_add(1);
    wake_sleepers(count);
    return {};
}

bool messages_wait(DP *dp) {
    PortSession &session = dp->state<PortSession>();
    if (!session.is_open()) return false;
    const std::uint32_t count = session.message_count();
    if (count != session.messages_noted) {
        session.messages_noted = count;
        dp->event_counter.fetch_add(1);
    }
    return count != session.messages_taken;
}

std::vector<std::string> take_messages(DP *dp) {
    if (!messages_wait(dp)) return {};
    PortSession &session = dp->state<PortSession>();
    session.messages_taken = session.message_count();
    std::vector<std::string> texts = port::take_queue(session.port());
    for (std::string &text : texts) text = text_to_show(std::move(text));
    return texts;
}

}  // namespace velda
