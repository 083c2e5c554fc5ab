// Streams over TCP on the loopback interface.
#include "runtime/socket/socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "runtime/process/interrupt.h"
#include "tests/support/scratch.h"
#include "tests/support/session.h"

namespace velda::test {
namespace {

constexpr const char *Loopback = "127.0.0.1";

class Sockets : public testing::Test {
  protected:
    // A listening socket on a free port, which is in `port`.
    int listening(const char *host = Loopback) {
        const int descriptor = velda_socket_open(dp, host);
        EXPECT_EQ(velda_socket_bind(dp, descriptor, host, 0), 0);
        EXPECT_EQ(velda_socket_listen(dp, descriptor, 1), 0);
        port = velda_socket_port(dp, descriptor);
        return descriptor;
    }
    // Both ends of a connection: `out` was connected, `in` accepted.
    void connect(const char *host = Loopback) {
        listener = listening(host);
        out = velda_connect(dp, host, port);
        in = velda_socket_accept(dp, listener);
        ASSERT_GE(out, 0);
        ASSERT_GE(in, 0);
    }
    std::string received(std::size_t size) {
        std::string bytes;
        while (bytes.size() < size) {
            std::vector<char> buffer(size - bytes.size());
            const ptrdiff_t got = velda_read(dp, in, buffer.data(), buffer.size());
            if (got <= 0) break;
            bytes.append(buffer.data(), static_cast<std::size_t>(got));
        }
        return bytes;
    }
    void send(const std::string &bytes) {
        ASSERT_EQ(velda_write(dp, out, bytes.data(), bytes.size()), static_cast<ptrdiff_t>(bytes.size()));
    }
    static int option(int descriptor, int level, int name) {
        int value = 0;
        socklen_t size = sizeof value;
        getsockopt(descriptor, level, name, &value, &size);
        return value;
    }

    ScratchSystem system;
    ScratchSession dp;
    int listener = -1, out = -1, in = -1, port = 0;
};

TEST_F(Sockets, WhatIsWrittenIsReadInSmallerPieces) {
    connect();
    send("one and two");
    EXPECT_EQ(received(4), "one ");
    EXPECT_EQ(received(7), "and two");
}

TEST_F(Sockets, TheEndOfTheStreamReadsAsZeroBytesWithoutAnError) {
    connect();
    send("last");
    ASSERT_EQ(velda_socket_close(dp, out), 0);
    EXPECT_EQ(received(4), "last");
    char byte;
    errno = EBADF;
    EXPECT_EQ(velda_read(dp, in, &byte, 1), 0);
    EXPECT_EQ(errno, 0);
}

TEST_F(Sockets, OutputThatWasEndedStillArrivesAndTheOtherDirectionStaysOpen) {
    connect();
    send("last");
    ASSERT_EQ(velda_socket_end_output(dp, out), 0);
    ASSERT_EQ(velda_socket_send(dp, in, "answer", 6), 6);
    EXPECT_EQ(received(5), "last");
    char answer[6];
    EXPECT_EQ(velda_socket_recv(dp, out, answer, 6), 6);
}

TEST_F(Sockets, AWriteToAnEndThatIsGoneFailsWithTheResetNumberAndNoSignal) {
    connect();
    velda_socket_close(dp, in);
    const std::string block(4096, 'x');
    int failures = 0;
    for (int tries = 0; tries < 1000 && failures == 0; ++tries)
        if (velda_write(dp, out, block.data(), block.size()) < 0) ++failures;
    ASSERT_EQ(failures, 1);
    EXPECT_EQ(errno, VELDA_SOCKET_RESET);
}

TEST_F(Sockets, AnAddressInUseHasItsOwnNumber) {
    listener = listening();
    const int second = velda_socket_open(dp, Loopback);
    EXPECT_EQ(velda_socket_bind(dp, second, Loopback, port), -1);
    EXPECT_EQ(errno, VELDA_SOCKET_ADDRESS_IN_USE);
}

TEST_F(Sockets, AnUnknownHostIsAbsent) {
    EXPECT_EQ(velda_socket_lookup(dp, "no-such-host.invalid"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(velda_connect(dp, "no-such-host.invalid", 2000), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Sockets, AConnectionThatNobodyTakesIsRefused) {
    const int closed = listening();
    velda_socket_close(dp, closed);
    EXPECT_EQ(velda_connect(dp, Loopback, port), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(Sockets, HostsOfTheNewerAddressesWork) {
    if (velda_socket_lookup(dp, "::1") != 0) GTEST_SKIP() << "no such addresses here";
    connect("::1");
    send("six");
    EXPECT_EQ(received(3), "six");
}

TEST_F(Sockets, ConnectionsDoNotDelaySmallWritesAndAreProbedWhenIdle) {
    connect();
    for (const int end : {out, in}) {
        EXPECT_EQ(option(end, IPPROTO_TCP, TCP_NODELAY), 1);
        EXPECT_EQ(option(end, SOL_SOCKET, SO_KEEPALIVE), 1);
    }
}

TEST_F(Sockets, ReadinessSeesBytesThatWereReadAhead) {
    connect();
    EXPECT_EQ(velda_socket_ready(dp, in, VELDA_SOCKET_INPUT), 0);
    send("two");
    EXPECT_EQ(received(1), "t");
    EXPECT_EQ(velda_socket_ready(dp, in, VELDA_SOCKET_INPUT), 1);
    EXPECT_EQ(received(2), "wo");
    EXPECT_EQ(velda_socket_ready(dp, in, VELDA_SOCKET_INPUT), 0);
}

TEST_F(Sockets, AFullConnectionIsNotReadyForOutput) {
    connect();
    EXPECT_EQ(velda_socket_ready(dp, out, VELDA_SOCKET_OUTPUT), 1);
    const std::string block(65536, 'x');
    while (velda_socket_ready(dp, out, VELDA_SOCKET_OUTPUT) == 1)
        ASSERT_GT(::send(out, block.data(), block.size(), MSG_DONTWAIT), 0);
    EXPECT_EQ(velda_socket_ready(dp, out, VELDA_SOCKET_OUTPUT), 0);
}

TEST_F(Sockets, ALongWriteGoesOnWhenTheReaderIsSlow) {
    connect();
    const std::string long_text(std::size_t{16} << 20, 'y');
    std::string got;
    std::thread reader([&] {
        std::vector<char> buffer(100000);
        ssize_t size;
        while (got.size() < long_text.size() && (size = ::recv(in, buffer.data(), buffer.size(), 0)) > 0)
            got.append(buffer.data(), static_cast<std::size_t>(size));
    });
    send(long_text);
    reader.join();
    EXPECT_TRUE(got == long_text);
}

TEST_F(Sockets, BytesThatMoreFollowArriveTogetherOrWhenTheyAreSentOff) {
    connect();
    EXPECT_EQ(velda_socket_send_more(dp, out, "one ", 4), 4);
    send("and ");
    EXPECT_EQ(velda_socket_send_more(dp, out, "two", 3), 3);
    EXPECT_EQ(velda_socket_push(dp, out), 0);
    EXPECT_EQ(received(11), "one and two");
}

TEST_F(Sockets, AWriteOfMoreTakesWhatFindsRoomAndNeverWaits) {
    connect();
    const std::string block(std::size_t{64} << 20, 'x');
    const ptrdiff_t written = velda_socket_send_more(dp, out, block.data(), block.size());
    EXPECT_GT(written, 0);
    EXPECT_LT(written, static_cast<ptrdiff_t>(block.size()));
    while (velda_socket_send_more(dp, out, block.data(), block.size()) > 0) continue;
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Sockets, AnInterruptEndsAWaitAndLosesNothing) {
    connect();
    raise_interrupt(dp);
    char byte;
    EXPECT_EQ(velda_read(dp, in, &byte, 1), -1);
    EXPECT_EQ(errno, EINTR);
    discard_interrupts(dp);
    send("x");
    EXPECT_EQ(received(1), "x");
}

TEST_F(Sockets, OrdinaryDescriptorsAreReadAndWrittenToo) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(velda_write(dp, ends[1], "pipe", 4), 4);
    char bytes[8];
    EXPECT_EQ(velda_read(dp, ends[0], bytes, sizeof bytes), 4);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(Sockets, TheDataCallsOfSocketsRefuseOtherDescriptors) {
    char byte = 'x';
    EXPECT_EQ(velda_socket_send(dp, STDERR_FILENO, &byte, 1), -1);
    EXPECT_EQ(errno, ENOTCONN);
    EXPECT_EQ(velda_socket_recv(dp, STDERR_FILENO, &byte, 1), -1);
    EXPECT_EQ(errno, ENOTCONN);
}

TEST_F(Sockets, TheSessionsEndClosesItsConnections) {
    connect();
    DP *const other = velda_new_context();
    const int theirs = velda_connect(other, Loopback, port);
    const int ours = velda_socket_accept(dp, listener);
    velda_free_context(other);
    EXPECT_EQ(fcntl(theirs, F_GETFD), -1);
    char byte;
    EXPECT_EQ(velda_read(dp, ours, &byte, 1), 0);
}

}  // namespace
}  // namespace velda::test
