// The connection of a transfer: the sender calls, the receiver waits for one sender at a time.
#include <cerrno>

#include "journal/duplicator/duplicator.h"

namespace velda::journal {

namespace {

constexpr int OneSender = 1;  // that may wait

// Errors that have numbers of their own here have no words under them.
int error_with_words(int error) {
    if (error == VELDA_SOCKET_ADDRESS_IN_USE) return EADDRINUSE;
    return error == VELDA_SOCKET_RESET ? ECONNRESET : error;
}

// Reports the step that failed; errno stays.
int fail(DP *dp, const char *step, int result) {
    const int error = errno;
    errno = error_with_words(error);
    VELDAperror(dp, step);
    errno = error;
    return result;
}

int connect_sender(DP *dp, LogSelect &select) {
    select.fd = velda_connect(dp, select.hostName.c_str(), select.port);
    if (select.fd >= 0) return 0;
    VELDAfprintf(dp, stderr, "Unable to connect to host %s , error %d\n", select.hostName.c_str(), errno);
    return fail(dp, "connect", -1);
}

// Binds the socket, for as long as the caller's error value is that of an address in use. Deliberate: the error of the
// attempt itself is not looked at, so that a caller without that value has one attempt.
bool bind_receiver(DP *dp, const LogSelect &select, int error_value) {
    for (int delay_seconds = 1;; delay_seconds *= 2) {
        if (velda_socket_bind(dp, select.listener.descriptor, select.hostName.c_str(), select.port) == 0) return true;
        if (error_value != VELDA_SOCKET_ADDRESS_IN_USE) return false;
        VELDAfprintf(dp, stderr, "Retry Addr in use bind failed\n");
        VLibESLEEP_II(dp, delay_seconds);
    }
}

// Gives the socket up after a report of the step, which the message follows. errno stays.
int close_and_fail(DP *dp, LogSelect &select, const char *step, int result, const std::string &message) {
    const int error = errno;
    fail(dp, step, result);
    VELDAfprintf(dp, stderr, "%s\n", message.c_str());
    velda_socket_close(dp, select.listener.descriptor);
    select.listener.descriptor = -1;
    errno = error;
    return result;
}

int open_receiver(DP *dp, LogSelect &select, int error_value) {
    const char *const host = select.hostName.c_str();
    if (velda_socket_lookup(dp, host) != 0) {
        fail(dp, "hostname", -1);
        VELDAfprintf(dp, stderr, "Unable to get hostname\n");
        return -1;
    }
    select.listener.descriptor = velda_socket_open(dp, host);
    if (velda_socket_reuse_address(dp, select.listener.descriptor) != 0)
        return close_and_fail(dp, select, "setsockopt", 1,
                              "Unable to initialise call to setsockopt() to reuse address");
    if (bind_receiver(dp, select, error_value)) return 0;
    return close_and_fail(dp, select, "bind", -1, "Unable to bind() socket, error " + std::to_string(error_value));
}

// Waits for the sender. Deliberate: a failure is told and its error left, and the caller finds it by reading.
void accept_sender(DP *dp, LogSelect &select) {
    if (velda_socket_listen(dp, select.listener.descriptor, OneSender) != 0)
        VELDAfprintf(dp, stderr, "Unable to listen() on socket, error %d\n", errno);
    while (velda_socket_wait(dp, select.listener.descriptor, VELDA_SOCKET_INPUT) != 0 &&
           (errno == EINTR || errno == EAGAIN))
        DupCallback(dp, BetweenRecords);
    while ((select.fd = velda_socket_accept(dp, select.listener.descriptor)) < 0 && errno == EINTR)
        DupCallback(dp, BetweenRecords);
    const int error = errno;
    if (select.fd < 0) VELDAfprintf(dp, stderr, "Unable to accept() on socket, error %d\n", error);
    errno = error;
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDASetupSocketIO(DP *dp, LogSelect *select, int is_output, int error_value) {
    if (!velda_socket_context(dp)) return fail(dp, "Context", -1);
    select->deviceIndex = SocketAtStart;
    if (is_output) return connect_sender(dp, *select);
    if (const int failure = open_receiver(dp, *select, error_value)) return failure;
    accept_sender(dp, *select);
    return 0;
}
