// What goes with a transfer: connections, milestones, the callback of a run and its stopping.
#include <netinet/in.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <atomic>
#include <csignal>

#include "journal/select_parser.h"
#include "tests/journal_internals/device_fixture.h"
#include "tests/support/seed.h"
#include "tests/support/terminal_program.h"

using namespace velda::journal;
using namespace velda::test;

namespace {

std::int64_t clock_seconds = 0;

class Transfer : public DeviceTest {
  protected:
    Transfer() {
        setenv("TZ", "UTC", 1);
        tzset();
        clock_seconds = 1000;
        milestone_clock = [] { return clock_seconds; };
    }
    ~Transfer() override { milestone_clock = present_time; }

    std::string status() { return logger_text(run().slot->statusText, sizeof run().slot->statusText); }
};

// --- the receiver's milestones ---

class SentMilestones : public Transfer {
  protected:
    SentMilestones() : other(as_socket(input())) { input().sendMilestone = 1; }
    void applied(std::int64_t time) { DupSendMilestone(dp, run(), time); }
    int other;
};

TEST_F(SentMilestones, ATimeIsEightBytesTheMostSignificantFirst) {
    applied(0x0102030405060708);
    EXPECT_EQ(receive(other), "\x01\x02\x03\x04\x05\x06\x07\x08");
}

TEST_F(SentMilestones, OneIsSentInThirtySecondsAtMost) {
    applied(1);
    clock_seconds += 29;
    applied(2);
    EXPECT_EQ(receive(other), int64(1));
    clock_seconds += 1;
    applied(3);
    applied(4);
    EXPECT_EQ(receive(other), int64(3));
}

TEST_F(SentMilestones, AConnectionThatTakesNothingCostsTheNextThirtySecondsToo) {
    const std::string filling(65536, 'x');
    while (velda_socket_ready(dp, input().fd, VELDA_SOCKET_OUTPUT))
        ASSERT_GT(::send(input().fd, filling.data(), filling.size(), MSG_DONTWAIT), 0);
    applied(1);
    EXPECT_EQ(run().lastMilestoneSent, clock_seconds);
    while (!receive(other).empty()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(velda_socket_ready(dp, input().fd, VELDA_SOCKET_OUTPUT));
    applied(2);
    EXPECT_EQ(receive(other), "");
    clock_seconds += 30;
    applied(3);
    EXPECT_EQ(receive(other), int64(3));
}

TEST_F(SentMilestones, NoneIsSentUnlessTheInputAsksForIt) {
    input().sendMilestone = 0;
    applied(1);
    EXPECT_EQ(receive(other), "");
    EXPECT_EQ(run().lastMilestoneSent, 0);
}

TEST_F(SentMilestones, NoneIsSentBeyondAnUnfinishedTransaction) {
    output().deviceType = Null;
    run().transactionCount = 1;
    run().transactions.push_back({});
    run().transactions.back().pid = 7;
    run().transactions.back().startTime = 500;
    const std::string bytes = bytes_of(checkpoint_record(0, ""));
    DupApply(dp, reinterpret_cast<const unsigned char *>(bytes.data()));
    EXPECT_EQ(receive(other), int64(500));
}

// --- the sender's file ---

class KeptMilestones : public Transfer {
  protected:
    KeptMilestones() : other(as_socket(output())) {
        output().milestoneFile = system_ / "milestone";
        run().firstTime = 1'700'000'000;
        run().lastTime = 1'700'000'100;
        run().slot->startTime = 1'699'999'999;
    }
    void keep(const std::string &text) { store(output().milestoneFile, text); }
    std::string kept() { return content(output().milestoneFile); }
    void arrives(const std::string &bytes) {
        send(other, bytes);
        while (!velda_socket_ready(dp, output().fd, VELDA_SOCKET_INPUT)) std::this_thread::yield();
        DupReadMilestone(dp, run());
    }
    int other;
};

TEST_F(KeptMilestones, TheFileTellsOfTheSenderAndTheReceiver) {
    arrives(int64(1'700'000'050));
    EXPECT_EQ(kept(),
              "vlogdup Milestone Status\n"
              "Sender Start       : 22:13:19 14 NOV 2023 (UTC 1699999999)\n"
              "Sender Milestone   : 22:15:00 14 NOV 2023 (UTC 1700000100)\n"
              "Receiver Milestone : 22:14:10 14 NOV 2023 (UTC 1700000050)\n");
    EXPECT_EQ(run().ackTime, 1'700'000'050);
}

TEST_F(KeptMilestones, AStartTimeIsReadFromTheFile) {
    arrives(int64(1'700'000'050));
    EXPECT_EQ(LoggerFileStamp(dp, output().milestoneFile.c_str(), "Receiver Milestone", "(UTC"), 1'700'000'050);
}

TEST_F(KeptMilestones, AMilestoneInPiecesIsAssembledAcrossCalls) {
    keep("before");
    const std::string milestone = int64(1'700'000'060);
    for (std::size_t n = 0; n < 7; ++n) arrives(milestone.substr(n, 1));
    EXPECT_EQ(kept(), "before");
    arrives(milestone.substr(7) + int64(1'700'000'070).substr(0, 3));
    EXPECT_EQ(run().ackTime, 1'700'000'060);
    arrives(int64(1'700'000'070).substr(3));
    EXPECT_EQ(run().ackTime, 1'700'000'070);
}

TEST_F(KeptMilestones, OneIsTakenBeforeAWaitAlsoWhenThereIsNothingToSend) {
    send(other, int64(1'700'000'050));
    while (!velda_socket_ready(dp, output().fd, VELDA_SOCKET_INPUT)) std::this_thread::yield();
    DupCallback(dp, WaitBegins);
    EXPECT_EQ(run().ackTime, 1'700'000'050);
}

TEST_F(KeptMilestones, OfSeveralTheLastOneCounts) {
    arrives(int64(1'700'000'010) + int64(1'700'000'020));
    EXPECT_EQ(run().ackTime, 1'700'000'020);
}

TEST_F(KeptMilestones, ZeroAndTimesThatWereNotSentLeaveTheFileAsItWas) {
    keep("before");
    for (const std::int64_t time :
         {std::int64_t{0}, std::int64_t{1'699'999'999}, std::int64_t{1'700'000'101}, std::int64_t{-1}, INT64_MAX}) {
        arrives(int64(time));
        EXPECT_EQ(kept(), "before") << time;
        EXPECT_EQ(run().ackTime, 0) << time;
    }
    arrives(int64(1'700'000'000));
    arrives(int64(1'700'000'100));
    EXPECT_EQ(run().ackTime, 1'700'000'100);
}

TEST_F(KeptMilestones, AnEmptyFileGetsTheTimeWhereThisRunBeganAsSoonAsSomethingWasSent) {
    keep("");
    DupReadMilestone(dp, run());
    EXPECT_NE(kept().find("Receiver Milestone : 22:13:20 14 NOV 2023 (UTC 1700000000)\n"), std::string::npos);
    EXPECT_EQ(run().ackTime, 0);
}

TEST_F(KeptMilestones, ALongerOldTextIsCutOff) {
    keep(std::string(1000, 'x'));
    arrives(int64(1'700'000'050));
    EXPECT_EQ(kept().find('x'), std::string::npos);
}

TEST_F(KeptMilestones, AFileThatCannotBeWrittenIsAWarning) {
    output().milestoneFile = system_ / "nowhere/milestone";
    EXPECT_EQ(command([&] { arrives(int64(1'700'000'050)); }), 0);
    EXPECT_NE(said.find("WARNING: "), std::string::npos);
    EXPECT_NE(said.find("Error number 2 writing to the milestone file '" + output().milestoneFile + "'"),
              std::string::npos);
    EXPECT_EQ(run().errorCount, 0u);
}

TEST_F(KeptMilestones, ASenderKilledAtAnyInstantLeavesAReadableFile) {
    auto random = seeded_random();
    keep("");
    DupReadMilestone(dp, run());
    for (int round = 0; round < 40; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            for (std::int64_t time = 1'700'000'000;; time = time < 1'700'000'100 ? time + 1 : 1'700'000'000) {
                send(other, int64(time));
                DupReadMilestone(dp, run());
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        receive(output().fd);
        const std::int64_t time = LoggerFileStamp(dp, output().milestoneFile.c_str(), "Receiver Milestone", "(UTC");
        ASSERT_GE(time, 1'700'000'000) << kept();
        ASSERT_LE(time, 1'700'000'100) << kept();
    }
}

// --- the end of a sender ---

TEST_F(Transfer, TheSenderWaitsUntilTheReceiverHasTakenAllAndTakesItsMilestones) {
    const int other = as_socket(output());
    output().milestoneFile = system_ / "milestone";
    run().firstTime = 10;
    run().lastTime = 20;
    write(numbered(1));
    std::string got;
    std::thread receiver([&] {
        char buffer[1024];
        pollfd input{other, POLLIN, 0};  // the descriptor does not wait by itself
        ssize_t size;
        while (poll(&input, 1, -1) == 1 && (size = ::recv(other, buffer, sizeof buffer, 0)) > 0)
            got.append(buffer, static_cast<std::size_t>(size));
        const std::string milestone = int64(15);
        EXPECT_EQ(::send(other, milestone.data(), milestone.size(), 0), 8);
        ::shutdown(other, SHUT_WR);
    });
    end_stream(dp, true);
    receiver.join();
    EXPECT_EQ(run().ackTime, 15);
    EXPECT_EQ(got.size(), static_cast<std::size_t>(DeviceBlock));
    EXPECT_NE(got.find(std::string("\x01\0\0\0", 4)), std::string::npos);
}

// --- the callback ---

struct ShownText {
    int begins, ends;
    const char *text;
};

TEST_F(Transfer, EachWaitShowsItsTextAndTheOneBeforeBehindIt) {
    for (const ShownText shown : {ShownText{RetryBegins, RetryEnds, "SLEEPing: Retrying a READ"},
                                  ShownText{WaitBegins, WaitEnds, "SLEEPing: Waiting INPUT data"},
                                  ShownText{BlockReadBegins, BlockReadEnds, "READING from serial device or TTY"},
                                  ShownText{PromptBegins, PromptEnds, "PROMPT user, awaiting reply"}}) {
        output().deviceType = Null;
        set_status_text(dp, "before");
        DupCallback(dp, shown.begins);
        EXPECT_EQ(status(), shown.text);
        DupCallback(dp, shown.ends);
        EXPECT_EQ(status(), "before");
    }
}

TEST_F(Transfer, SleepsFlushAStreamAndOtherEventsDoNot) {
    write_to({"output"});
    for (const int code : {BlockReadBegins, PromptBegins, BetweenRecords, RetryEnds, WaitEnds}) {
        write(numbered(1, 0));
        DupCallback(dp, code);
        EXPECT_EQ(run().slot->outputBlocks, 0u) << code;
        output().bufferPosition = 28;
    }
    std::uint64_t blocks = 0;
    for (const int code : {RetryBegins, WaitBegins}) {
        write(numbered(1, 0));
        DupCallback(dp, code);
        EXPECT_EQ(run().slot->outputBlocks, ++blocks);
    }
}

TEST_F(Transfer, AnErrorOfTheInputIsReportedWithItsArguments) {
    EXPECT_EQ(command([&] { DupCallback(dp, ErrorText, "number %d of '%s'", 7, "seven"); }), 0);
    EXPECT_NE(said.find("ERROR:  For definition"), std::string::npos);
    EXPECT_NE(said.find("    number 7 of 'seven'\n"), std::string::npos);
    EXPECT_EQ(run().slot->inputErrors, 1u);
}

TEST_F(Transfer, AnOperatorsKillIsReportedOnceAndEndsTheRun) {
    output().deviceType = Null;
    run().slot->killerPid = 4711;
    run().slot->killerPort = 12;
    EXPECT_EQ(command([&] { DupCallback(dp, BetweenRecords); }), ExitKilled);
    const std::string text = "Process killed by operator: Process id 4711 from port 12";
    const std::size_t found = said.find(text);
    ASSERT_NE(found, std::string::npos);
    EXPECT_EQ(said.find(text, found + 1), std::string::npos);
}

TEST_F(Transfer, AKillNeedsProcessAndPort) {
    run().slot->killerPid = 4711;
    EXPECT_EQ(command([&] { DupCallback(dp, BetweenRecords); }), 0);
}

// The output of a run that is stopped by a signal while it waits for input.
std::string stream_after_signal(const std::string &path, int signal_number, int &code) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        run_and_exit([&](DP *session) {
            start_run(session);
            DupContext &context = dup_context(session);
            map_logger(session, logger_context(session));
            DupStatusSlot slot{};
            context.slot = &slot;
            context.output->devices = {path};
            const std::string bytes = bytes_of(numbered(1));
            DupCallback(session, BetweenRecords);
            DupWriteDevice(session, reinterpret_cast<const unsigned char *>(bytes.data()));
            store(path + ".ready", "");
            for (;;) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                DupCallback(session, BetweenRecords);
            }
        });
    }
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(path + ".ready"); }));
    kill(child, signal_number);
    int status = 0;
    waitpid(child, &status, 0);
    code = code_of(status);
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(Transfer, ASignalEndsTheRunWithItsClosingSteps) {
    for (const int signal_number : {SIGINT, SIGTERM}) {
        int code = 0;
        const std::string stream = stream_after_signal(system_ / "stopped", signal_number, code);
        EXPECT_EQ(code, ExitSignal & 0xFF);
        EXPECT_NE(stream.find("key1"), std::string::npos);
        EXPECT_NE(stream.find(marks("^^^^^")), std::string::npos) << "the stream has its end record";
        std::filesystem::remove(system_ / "stopped");
        std::filesystem::remove(system_ / "stopped.ready");
    }
}

class FullOutput : public Transfer, public testing::WithParamInterface<bool> {};

// A sender in the background of a script ignores interrupts; what it writes finds no room at some time.
TEST_P(FullOutput, ASenderWhoseReceiverTakesNothingEndsWhenAnOperatorKillsIt) {
    auto &slot = *static_cast<DupStatusSlot *>(
        mmap(nullptr, sizeof(DupStatusSlot), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    if (GetParam()) {
        as_socket(output());
    } else {
        output().deviceType = Tty;
        output().fd = pipe_ends[1];
        output().blockSize = 10000;
    }
    std::fflush(nullptr);
    const pid_t sender = fork();
    if (sender == 0) {
        std::signal(SIGINT, SIG_IGN);
        run().slot = &slot;
        run_and_exit([&](DP *) {
            for (;;) write(numbered(1, 200));
        });
    }
    std::uint64_t blocks = 0;
    EXPECT_TRUE(eventually([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return slot.outputBlocks > 0 && std::exchange(blocks, slot.outputBlocks) == slot.outputBlocks;
    }));
    slot.killerPid = 1;
    slot.killerPort = 1;
    int status = 0;
    EXPECT_TRUE(eventually([&] { return waitpid(sender, &status, WNOHANG) == sender; }));
    EXPECT_EQ(code_of(status), ExitKilled);
    munmap(&slot, sizeof slot);
    close(pipe_ends[0]);
    if (GetParam()) close(pipe_ends[1]);  // else the fixture closes it
}
INSTANTIATE_TEST_SUITE_P(Outputs, FullOutput, testing::Bool(),
                         [](const auto &is_socket) { return std::string(is_socket.param ? "Socket" : "Pipe"); });

// As behind a sender that stands still in the middle of a block.
TEST_F(Transfer, AReaderOfAPipeWhoseWriterStandsStillLooksWhetherItIsToEnd) {
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    input().deviceType = Tty;
    input().fd = pipe_ends[0];
    input().deviceStamp = DeviceStamp;
    output().deviceType = Null;
    const std::string stream = stream_of({numbered(1)});
    ASSERT_EQ(::write(pipe_ends[1], stream.data(), 100), 100);
    std::thread operator_of_it([&slot = *run().slot] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        std::atomic_ref(slot.killerPort).store(1);
        std::atomic_ref(slot.killerPid).store(1);
    });
    EXPECT_EQ(command([&] { LoggerReadDevice(dp, &input(), DupCallback); }), ExitKilled);
    operator_of_it.join();
    close(pipe_ends[1]);
}

// --- connections ---

class Connection : public Transfer {
  protected:
    // Sets a socket up as input or output and gives the result; what it said is in `said`.
    int set_up(LogSelect &select, bool is_output, int error_value = 0) {
        select.deviceType = Socket;
        int result = -99;
        command([&] {
            errno = 0;
            result = VELDASetupSocketIO(dp, &select, is_output, error_value);
            error = errno;
        });
        return result;
    }
    static std::uint16_t free_port(DP *session) {
        const int descriptor = velda_socket_open(session, "127.0.0.1");
        velda_socket_bind(session, descriptor, "127.0.0.1", 0);
        const int port = velda_socket_port(session, descriptor);
        velda_socket_close(session, descriptor);
        return static_cast<std::uint16_t>(port);
    }
    int error = 0;
};

TEST_F(Connection, ASenderThatFindsNobodySaysWhere) {
    output().hostName = "127.0.0.1";
    output().port = free_port(dp);
    EXPECT_EQ(set_up(output(), true), -1);
    EXPECT_EQ(said, "Unable to connect to host 127.0.0.1 , error 111\nconnect: Connection refused\n");
    EXPECT_EQ(error, ECONNREFUSED);
}

TEST_F(Connection, AReceiverNeedsAHostNameThatIsKnown) {
    input().hostName = "no-such-host.invalid";
    input().port = 2000;
    EXPECT_EQ(set_up(input(), false), -1);
    EXPECT_EQ(said, "hostname: No such file or directory\nUnable to get hostname\n");
}

TEST_F(Connection, AnAddressInUseIsToldWithTheErrorThatTheCallerHad) {
    const int holder = velda_socket_open(dp, "127.0.0.1");
    velda_socket_bind(dp, holder, "127.0.0.1", 0);
    velda_socket_listen(dp, holder, 1);
    input().hostName = "127.0.0.1";
    input().port = static_cast<std::uint16_t>(velda_socket_port(dp, holder));
    EXPECT_EQ(set_up(input(), false, 5), -1);
    EXPECT_EQ(said, "bind: Address already in use\nUnable to bind() socket, error 5\n");
    EXPECT_EQ(error, VELDA_SOCKET_ADDRESS_IN_USE);
    EXPECT_EQ(input().listener.descriptor, -1);
}

TEST_F(Connection, ACallerWithTheErrorOfAnAddressInUseHasItTriedAgain) {
    const int holder = velda_socket_open(dp, "127.0.0.1");
    velda_socket_bind(dp, holder, "127.0.0.1", 0);
    velda_socket_listen(dp, holder, 1);
    const int port = velda_socket_port(dp, holder);
    input().hostName = "127.0.0.1";
    input().port = static_cast<std::uint16_t>(port);
    std::thread sender([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ::close(holder);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int descriptor = ::socket(AF_INET, SOCK_STREAM, 0);
        while (::connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ::close(descriptor);
    });
    EXPECT_EQ(set_up(input(), false, VELDA_SOCKET_ADDRESS_IN_USE), 0);
    sender.join();
    EXPECT_EQ(said, "Retry Addr in use bind failed\n");
    EXPECT_GE(input().fd, 0);
}

TEST_F(Connection, AReceiverThatGetsNoSocketSaysSo) {
    input().hostName = "127.0.0.1";
    input().port = free_port(dp);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    int result = 0;
    command([&] {
        const rlimit none = {0, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        result = VELDASetupSocketIO(dp, &input(), 0, 0);
        setrlimit(RLIMIT_NOFILE, &before);
    });
    EXPECT_EQ(result, 1);
    EXPECT_EQ(said, "setsockopt: Bad file descriptor\nUnable to initialise call to setsockopt() to reuse address\n");
    EXPECT_EQ(input().listener.descriptor, -1);
}

TEST_F(Connection, ASocketIsAtItsStartUntilTheFirstBlock) {
    const int listener = velda_socket_open(dp, "127.0.0.1");
    velda_socket_bind(dp, listener, "127.0.0.1", 0);
    velda_socket_listen(dp, listener, 1);
    output().hostName = "127.0.0.1";
    output().port = static_cast<std::uint16_t>(velda_socket_port(dp, listener));
    EXPECT_EQ(set_up(output(), true), 0);
    EXPECT_EQ(output().deviceIndex, SocketAtStart);
    write(numbered(1));
    EXPECT_EQ(output().deviceIndex, 0);
}

}  // namespace
