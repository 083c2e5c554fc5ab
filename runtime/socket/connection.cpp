#include "runtime/socket/connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "runtime/process/context.h"
#include "runtime/process/interrupt.h"

namespace velda::sockets {
namespace {

// An interrupt that comes just before the wait is noticed after so long at the latest.
constexpr int LongestWaitMilliseconds = 500;

// An end that does not answer is given up after about three minutes.
constexpr int KeepaliveIdleSeconds = 60, KeepaliveStepSeconds = 20, KeepaliveProbes = 6;

void set_option(int descriptor, int level, int option, int value) {
    // A connection works without each of these, so a refusal changes nothing.
    setsockopt(descriptor, level, option, &value, sizeof value);
}

std::ptrdiff_t failed(int error) {
    errno = error_number(error);
    return -1;
}

}  // namespace

int error_number(int platform_error) {
    switch (platform_error) {
        case EADDRINUSE:
            return VELDA_SOCKET_ADDRESS_IN_USE;
        case ECONNRESET:
        case EPIPE:
            return VELDA_SOCKET_RESET;
        default:
            return platform_error;
    }
}

bool wait_a_while(DP *dp, int descriptor, short events) {
    if (interrupt_pending(dp)) {
        errno = EINTR;
        return false;
    }
    pollfd waiting{descriptor, events, 0};
    const int ready = poll(&waiting, 1, LongestWaitMilliseconds);
    if (ready > 0) return true;
    if (ready == 0 || errno == EINTR) errno = EAGAIN;
    return false;
}

bool wait_for(DP *dp, int descriptor, short events) {
    while (!wait_a_while(dp, descriptor, events))
        if (errno != EAGAIN) return false;
    return true;
}

std::ptrdiff_t Connection::receive(DP *dp, void *buffer, std::size_t size) const {
    for (;;) {
        const ssize_t got = recv(descriptor_, buffer, size, MSG_DONTWAIT);
        if (got > 0) return got;
        if (got == 0) {
            errno = 0;  // the end is no failure, and an older error must not be taken for its reason
            return 0;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN) return failed(errno);
        if (!wait_for(dp, descriptor_, POLLIN)) return failed(errno);
    }
}

std::ptrdiff_t Connection::take_ahead(void *buffer, std::size_t size) {
    const std::size_t taken = std::min(size, end_ - begin_);
    std::memcpy(buffer, ahead_.get() + begin_, taken);
    begin_ += taken;
    return static_cast<std::ptrdiff_t>(taken);
}

std::ptrdiff_t Connection::read(DP *dp, void *buffer, std::size_t size) {
    if (has_bytes()) return take_ahead(buffer, size);
    if (size >= AheadBytes) return receive(dp, buffer, size);
    if (!ahead_) ahead_ = std::make_unique<std::byte[]>(AheadBytes);
    const std::ptrdiff_t got = receive(dp, ahead_.get(), AheadBytes);
    if (got <= 0) return got;
    begin_ = 0;
    end_ = static_cast<std::size_t>(got);
    return take_ahead(buffer, size);
}

std::ptrdiff_t Connection::write(DP *dp, const void *buffer, std::size_t size) {
    const auto *const bytes = static_cast<const std::byte *>(buffer);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t sent = send(descriptor_, bytes + done, size - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            done += static_cast<std::size_t>(sent);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno == EAGAIN && wait_for(dp, descriptor_, POLLOUT)) continue;
        return done > 0 ? static_cast<std::ptrdiff_t>(done) : failed(errno);
    }
    return static_cast<std::ptrdiff_t>(done);
}

std::ptrdiff_t Connection::write_more(const void *buffer, std::size_t size) const {
    for (;;) {
        const ssize_t sent = send(descriptor_, buffer, size, MSG_NOSIGNAL | MSG_DONTWAIT | MSG_MORE);
        if (sent >= 0) return sent;
        if (errno != EINTR) return failed(errno);
    }
}

int keep_connection(DP *dp, int descriptor) {
    set_option(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, KeepaliveIdleSeconds);
    set_option(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, KeepaliveStepSeconds);
    set_option(descriptor, IPPROTO_TCP, TCP_KEEPCNT, KeepaliveProbes);
    velda_socket_context(dp)->connections.push_back(std::make_unique<Connection>(descriptor));
    return descriptor;
}

}  // namespace velda::sockets

using velda::sockets::Connection;

VELDASocketContext::~VELDASocketContext() {
    for (const auto &connection : connections) ::close(connection->descriptor());
}

Connection *VELDASocketContext::find(int descriptor) {
    for (const auto &connection : connections)
        if (connection->descriptor() == descriptor) return connection.get();
    return nullptr;
}

void VELDASocketContext::forget(int descriptor) {
    std::erase_if(connections, [&](const auto &connection) { return connection->descriptor() == descriptor; });
}
