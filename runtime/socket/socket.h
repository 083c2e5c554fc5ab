// socket.h - blocking streams of bytes over TCP. For C and C++.
//
// Every call takes the context first. A call that fails gives -1, or what it says, and leaves the reason in errno, an
// error number of the platform, but for these: VELDA_SOCKET_ADDRESS_IN_USE, VELDA_SOCKET_RESET, and 2 (absent) for a
// host name that nobody knows. A host is a name or a numeric address of IPv4 or IPv6.
//
// A call that waits does so until it is done or the session is interrupted: then it fails with EINTR (4), having lost
// nothing, and the caller tests for signals and calls again. No call raises a signal. Sockets are closed in a program
// that is started (close on exec).
#ifndef VELDA_RUNTIME_SOCKET_H
#define VELDA_RUNTIME_SOCKET_H

#include <stddef.h>

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// Error numbers that rules test by value.
enum { VELDA_SOCKET_ADDRESS_IN_USE = 10048, VELDA_SOCKET_RESET = 10054 };

// Directions of velda_socket_ready.
enum { VELDA_SOCKET_INPUT = 1, VELDA_SOCKET_OUTPUT = 2 };

// What a session knows of its connections.
typedef struct VELDASocketContext VELDASocketContext;

// The session's own, made at the first call and freed, with the connections that are still open, at its end.
VELDA_EXPORT VELDASocketContext *velda_socket_context(DP *dp);

// --- connections ----------------------------------------------------------------------------------------------------

// Connects to a host, by each of its addresses in turn. The connection's descriptor.
VELDA_EXPORT int velda_connect(DP *dp, const char *host, int port);

// 0 when the name of a host can be looked up.
VELDA_EXPORT int velda_socket_lookup(DP *dp, const char *host);

// A new stream socket for an address of the local host: IPv4 where the name has such an address, else IPv6.
VELDA_EXPORT int velda_socket_open(DP *dp, const char *host);

// Lets the socket take an address whose last connection has not quite ended. 0.
VELDA_EXPORT int velda_socket_reuse_address(DP *dp, int descriptor);

// Gives the socket the local address of `host` and the port; port 0 takes a free one. 0.
VELDA_EXPORT int velda_socket_bind(DP *dp, int descriptor, const char *host, int port);

// The port that the socket has; 0 before it has one.
VELDA_EXPORT int velda_socket_port(DP *dp, int descriptor);

// Takes connections, of which so many may wait. 0.
VELDA_EXPORT int velda_socket_listen(DP *dp, int descriptor, int backlog);

// Waits for the next connection and gives its descriptor.
VELDA_EXPORT int velda_socket_accept(DP *dp, int descriptor);

// Tells the other end that nothing more will be written. What was written still arrives. 0.
VELDA_EXPORT int velda_socket_end_output(DP *dp, int descriptor);

// Closes a socket. 0. Data of the other end that nobody has read make the kernel drop what it has not sent yet: who
// wrote something that matters ends the output and reads to the end first.
VELDA_EXPORT int velda_socket_close(DP *dp, int descriptor);

// --- data -----------------------------------------------------------------------------------------------------------

// Waits until there are bytes and reads at most `size` of them; gives their number, which is 0 at the end of the stream.
// The first is for any descriptor, a connection or else an open file, pipe or device; the second for connections only.
VELDA_EXPORT ptrdiff_t velda_read(DP *dp, int descriptor, void *buffer, size_t size);
VELDA_EXPORT ptrdiff_t velda_socket_recv(DP *dp, int descriptor, void *buffer, size_t size);

// Writes `size` bytes and gives their number. Fewer have been written when the call was interrupted or failed on the
// way: the next call tells which.
VELDA_EXPORT ptrdiff_t velda_write(DP *dp, int descriptor, const void *buffer, size_t size);
VELDA_EXPORT ptrdiff_t velda_socket_send(DP *dp, int descriptor, const void *buffer, size_t size);

// Writes at once as many of the bytes as find room and gives their number; -1 with EAGAIN when none does, and
// velda_socket_wait tells when to try again. More bytes will follow: the kernel may wait for those, up to a fifth of a
// second, and send all together. The second sends what waits. 0.
VELDA_EXPORT ptrdiff_t velda_socket_send_more(DP *dp, int descriptor, const void *buffer, size_t size);
VELDA_EXPORT int velda_socket_push(DP *dp, int descriptor);

// 1 when bytes (or the end of the stream) can be read, or bytes written, without a wait; else 0. Never waits. For any
// descriptor, as velda_read.
VELDA_EXPORT int velda_socket_ready(DP *dp, int descriptor, int direction);

// Waits until velda_socket_ready would give 1. 0; -1 with EINTR for an interrupt, and with EAGAIN after half a second at
// most, so that a caller can look whether it was told to stop: a signal may be ignored, as it is in the background jobs
// of a script.
VELDA_EXPORT int velda_socket_wait(DP *dp, int descriptor, int direction);

#ifdef __cplusplus
}
#endif

#endif
