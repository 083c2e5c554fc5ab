// The entries of socket.h.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/process/context.h"
#include "runtime/socket/address.h"
#include "runtime/socket/connection.h"

namespace velda::sockets {
namespace {

int failed(int error) {
    errno = error_number(error);
    return -1;
}

int close_and_fail(int descriptor, int error) {
    close(descriptor);
    return failed(error);
}

// A connection that was interrupted goes on by itself; its outcome is asked for when it is there.
int await_connected(DP *dp, int descriptor) {
    if (!wait_for(dp, descriptor, POLLOUT)) return errno;
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

// The descriptor of a connection to one address, or -1.
int connect_to(DP *dp, const addrinfo &address) {
    const int descriptor = socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) return failed(errno);
    int error = connect(descriptor, address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
    if (error == EINPROGRESS || error == EINTR) error = await_connected(dp, descriptor);
    return error == 0 ? keep_connection(dp, descriptor) : close_and_fail(descriptor, error);
}

short poll_events(int direction) { return direction == VELDA_SOCKET_INPUT ? POLLIN : POLLOUT; }

Connection *connection_or_fail(DP *dp, int descriptor) {
    Connection *const connection = velda_socket_context(dp)->find(descriptor);
    if (!connection) errno = ENOTCONN;
    return connection;
}

}  // namespace
}  // namespace velda::sockets

using namespace velda::sockets;

VELDASocketContext *velda_socket_context(DP *dp) { return &dp->state<VELDASocketContext>(); }

int velda_connect(DP *dp, const char *host, int port) {
    const Addresses addresses = addresses_of(host, port, AF_UNSPEC);
    if (!addresses) return -1;
    for (const addrinfo *address = addresses.get(); address; address = address->ai_next) {
        const int descriptor = connect_to(dp, *address);
        if (descriptor >= 0 || errno == EINTR) return descriptor;
    }
    return -1;
}

int velda_socket_lookup(DP *, const char *host) { return addresses_of(host, 0, AF_UNSPEC) ? 0 : -1; }

int velda_socket_open(DP *, const char *host) {
    const Addresses addresses = local_addresses_of(host, 0);
    if (!addresses) return -1;
    const int descriptor = socket(addresses->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    return descriptor >= 0 ? descriptor : failed(errno);
}

int velda_socket_reuse_address(DP *, int descriptor) {
    const int on = 1;
    return setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 ? 0 : failed(errno);
}

int velda_socket_bind(DP *, int descriptor, const char *host, int port) {
    const Addresses addresses = local_addresses_of(host, port);
    if (!addresses) return -1;
    return bind(descriptor, addresses->ai_addr, addresses->ai_addrlen) == 0 ? 0 : failed(errno);
}

int velda_socket_port(DP *, int descriptor) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size) != 0) return 0;
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    return ntohs(reinterpret_cast<const sockaddr_in &>(address).sin_port);
}

int velda_socket_listen(DP *, int descriptor, int backlog) {
    return listen(descriptor, backlog) == 0 ? 0 : failed(errno);
}

int velda_socket_accept(DP *dp, int descriptor) {
    for (;;) {
        if (!wait_for(dp, descriptor, POLLIN)) return failed(errno);
        const int connection = accept4(descriptor, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0) return keep_connection(dp, connection);
        // A connection may be given up before it is taken.
        if (errno != EINTR && errno != ECONNABORTED && errno != EAGAIN) return failed(errno);
    }
}

int velda_socket_end_output(DP *, int descriptor) { return shutdown(descriptor, SHUT_WR) == 0 ? 0 : failed(errno); }

int velda_socket_close(DP *dp, int descriptor) {
    velda_socket_context(dp)->forget(descriptor);
    return close(descriptor) == 0 ? 0 : failed(errno);
}

ptrdiff_t velda_read(DP *dp, int descriptor, void *buffer, size_t size) {
    if (Connection *const connection = velda_socket_context(dp)->find(descriptor))
        return connection->read(dp, buffer, size);
    errno = 0;
    return read(descriptor, buffer, size);
}

ptrdiff_t velda_socket_recv(DP *dp, int descriptor, void *buffer, size_t size) {
    Connection *const connection = connection_or_fail(dp, descriptor);
    return connection ? connection->read(dp, buffer, size) : -1;
}

ptrdiff_t velda_write(DP *dp, int descriptor, const void *buffer, size_t size) {
    if (Connection *const connection = velda_socket_context(dp)->find(descriptor))
        return connection->write(dp, buffer, size);
    errno = 0;
    return write(descriptor, buffer, size);
}

ptrdiff_t velda_socket_send(DP *dp, int descriptor, const void *buffer, size_t size) {
    Connection *const connection = connection_or_fail(dp, descriptor);
    return connection ? connection->write(dp, buffer, size) : -1;
}

ptrdiff_t velda_socket_send_more(DP *dp, int descriptor, const void *buffer, size_t size) {
    Connection *const connection = connection_or_fail(dp, descriptor);
    return connection ? connection->write_more(buffer, size) : -1;
}

int velda_socket_push(DP *, int descriptor) {
    const int on = 1;  // it is on: setting it again has the kernel send what waits
    return setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0 ? 0 : failed(errno);
}

int velda_socket_ready(DP *dp, int descriptor, int direction) {
    const Connection *const connection = velda_socket_context(dp)->find(descriptor);
    if (direction == VELDA_SOCKET_INPUT && connection && connection->has_bytes()) return 1;
    pollfd asked{descriptor, poll_events(direction), 0};
    return poll(&asked, 1, 0) > 0 ? 1 : 0;
}

int velda_socket_wait(DP *dp, int descriptor, int direction) {
    if (velda_socket_ready(dp, descriptor, direction)) return 0;
    return wait_a_while(dp, descriptor, poll_events(direction)) ? 0 : -1;
}
