#include "runtime/port/session_port.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "runtime/port/port.h"
#include "runtime/port/status_record.h"
#include "runtime/process/system_numbers.h"
#include "tests/support/interleaving.h"
#include "tests/support/marks.h"

using namespace velda;
using namespace velda::test;

class SessionPort : public Interleaving {
  protected:
    void SetUp() override { unsetenv("VBCPORTNO"); }
    void TearDown() override { unsetenv("VBCPORTNO"); }

    std::string perform(DP *dp, const std::string &command) override {
        std::istringstream words(command);
        std::string verb, rest;
        words >> verb;
        std::getline(words >> std::ws, rest);
        if (verb == "port") {
            const auto port = session_port(dp);
            return port ? std::to_string(*port) : port.error().message;
        }
        if (verb == "command") return port_set_command(dp, rest), "done";
        if (verb == "messages") return joined(take_messages(dp));
        if (verb == "events") return std::to_string((messages_wait(dp), dp->event_counter.load()));
        if (verb == "send") return send(dp, rest);
        return "unknown command";
    }

    static std::string joined(const std::vector<std::string> &texts) {
        std::string all;
        for (const std::string &text : texts) all += "<" + text + ">";
        return all.empty() ? "none" : all;
    }
    // "5 text"
    static std::string send(DP *dp, const std::string &operands) {
        const auto blank = operands.find(' ');
        const auto sent = send_message(dp, std::stoi(operands), operands.substr(blank + 1));
        return sent ? "done" : sent.error().message;
    }

    std::string record(int port) { return port::read_status_record(*port_directory(&dp_), port); }
    std::string attribute(int port, int number) { return std::string(port::status_attribute(record(port), number)); }
    std::vector<std::string> recorded_ports() {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(*port_directory(&dp_)))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    DP dp_;
};

TEST_F(SessionPort, TheFirstFreeOneIsTakenAndKept) {
    run("one: port -> 1 | two: port -> 2 | one: port -> 1 | three: port -> 3");
}

TEST_F(SessionPort, OfAnEndedSessionIsFreeAgain) {
    run("one: port -> 1 | two: port -> 2 | one: killed | three: port -> 1");
}

TEST_F(SessionPort, EachContextOfAProcessHasItsOwn) { run("thread1: port -> 1 | thread2: port -> 2"); }

TEST_F(SessionPort, AForkedChildTakesAnother) {
    ASSERT_EQ(*session_port(&dp_), 1);
    const pid_t child = fork();
    if (child == 0) _exit(*session_port(&dp_));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(*session_port(&dp_), 1);
}

TEST_F(SessionPort, VbcportnoNamesOneOrARangeOrAList) {
    setenv("VBCPORTNO", "5", 1);
    run("a: port -> 5");
    setenv("VBCPORTNO", "5-7", 1);
    run("b: port -> 6 | c: port -> 7");
    setenv("VBCPORTNO", "7, 20-21, 3", 1);
    run("d: port -> 20 | e: port -> 21 | f: port -> 3");
    setenv("VBCPORTNO", "0", 1);
    run("g: port -> 0");
}

TEST_F(SessionPort, ANumberInUseIsAnErrorThatNamesPortAndHolder) {
    setenv("VBCPORTNO", "5", 1);
    run("one: port -> 5");
    const auto refused = session_port(&dp_);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().number, EADDRINUSE);
    EXPECT_EQ(refused.error().message, "port number 5 is in use by process " + std::to_string(actor("one").pid()) +
                                           ": end it, or set VBCPORTNO to another port or a range");
}

TEST_F(SessionPort, AFullRangeIsAnErrorThatNamesTheRange) {
    setenv("VBCPORTNO", "5-6,9", 1);
    run("one: port -> 5 | two: port -> 6 | three: port -> 9 |"
        "four: port -> all port numbers of 5-6,9 are in use: set VBCPORTNO to a wider range");
}

TEST_F(SessionPort, ABadVbcportnoIsAnErrorThatNamesIt) {
    for (const char *bad : {"x", "5-", "-5", "7-5", "5,,6", "1000000000", "5 6x"}) {
        setenv("VBCPORTNO", bad, 1);
        const auto refused = session_port(&dp_);
        ASSERT_FALSE(refused) << bad;
        EXPECT_EQ(refused.error().message,
                  "VBCPORTNO: '" + std::string(bad) + "' is no port number, range (first-last) or list of them");
    }
}

TEST_F(SessionPort, WithoutAPortThereAreNoLocks) {
    setenv("VBCPORTNO", "5", 1);
    run("one: port -> 5");
    const LockOutcome outcome = lock_record(&dp_, {1, 2}, "K", Wait::No);
    EXPECT_EQ(outcome.result, LockResult::Failed);
    EXPECT_TRUE(outcome.error.message.starts_with("port number 5 is in use by process"));
}

TEST_F(SessionPort, TheEntryGivesTheNumberOrMinusOne) {
    EXPECT_EQ(VELDAGetPortNumber(&dp_), 1);
    EXPECT_EQ(system_number(&dp_, 101).to_integer(), 1);
    setenv("VBCPORTNO", "1", 1);
    DP other;
    EXPECT_EQ(VELDAGetPortNumber(&other), -1);
    EXPECT_EQ(other.last_error, EADDRINUSE);
}

TEST_F(SessionPort, ManyWhoComeAtOnceGetDifferentNumbers) {
    std::vector<std::thread> threads;
    std::atomic<int> sum{0};
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            DP dp;
            sum += *session_port(&dp);
            while (sum < 36) std::this_thread::yield();
        });
    }
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(sum, 36);
}

// --- status records --------------------------------------------------------------------------------------------------

TEST_F(SessionPort, ItsRecordShowsTheSession) {
    run("one: port -> 1 | one: command LIST PACKAGES");
    EXPECT_EQ(attribute(1, port::StatusPort), "1");
    EXPECT_EQ(attribute(1, port::StatusProcess), std::to_string(actor("one").pid()));
    EXPECT_NEAR(std::stod(attribute(1, port::StatusConnected)), static_cast<double>(time(nullptr)), 10);
    EXPECT_EQ(attribute(1, port::StatusUser), system_number(&dp_, 1015).str());
    EXPECT_EQ(attribute(1, port::StatusAccount), system_number(&dp_, 19).str());
    EXPECT_EQ(attribute(1, port::StatusDirectory), std::filesystem::current_path().string());
    EXPECT_EQ(attribute(1, port::StatusCommand), "LIST PACKAGES");
    EXPECT_NEAR(std::stod(attribute(1, port::StatusCommandBegan)), static_cast<double>(time(nullptr)), 10);
    EXPECT_EQ(attribute(1, port::StatusReportChannels), "");
}

TEST_F(SessionPort, ItsRecordFollowsTheCommand) {
    run("one: command COPY A B");
    EXPECT_EQ(attribute(1, port::StatusCommand), "COPY A B");
    run("one: command CT A B");
    EXPECT_EQ(attribute(1, port::StatusCommand), "CT A B");
}

TEST_F(SessionPort, ItsRecordIsALineAnAttribute) {
    run("one: command COPY");
    std::ifstream file(*port_directory(&dp_) + "/1");
    std::string first, second;
    std::getline(file, first);
    std::getline(file, second);
    EXPECT_EQ(first, "1");
    EXPECT_EQ(second, std::to_string(actor("one").pid()));
}

TEST_F(SessionPort, ACommandWithMarksOrOfAnyLengthDoesNotBreakTheRecord) {
    run("one: port -> 1");
    port_set_command(&dp_, marks("A^B") + "\nC" + std::string(5000, 'x'));
    EXPECT_EQ(attribute(2, port::StatusCommand), "A B C" + std::string(295, 'x'));
    EXPECT_EQ(attribute(2, port::StatusContext), std::to_string(dp_.serial));
}

TEST_F(SessionPort, WhatOthersKeepInTheRecordStaysUntilTheSessionEnds) {
    run("one: command COPY");
    const std::string record = this->record(1) + std::string(15, AM) + "assignments";
    ASSERT_TRUE(port::write_status_record(*port_directory(&dp_), 1, record));
    run("one: command CT");
    EXPECT_EQ(attribute(1, port::StatusCommand), "CT");
    EXPECT_EQ(attribute(1, port::StatusReportChannels), "assignments");
    run("one: killed | two: port -> 1");
    EXPECT_EQ(attribute(1, port::StatusReportChannels), "");
}

TEST_F(SessionPort, ARecordThatAnotherSessionHasLockedIsLeftAlone) {
    run("one: command COPY");
    struct stat status;
    ASSERT_EQ(stat(port_directory(&dp_)->c_str(), &status), 0);
    DP locker;
    ASSERT_TRUE(lock_record(&locker, {status.st_dev, status.st_ino}, "1", Wait::No).granted());
    run("one: command CT");
    EXPECT_EQ(attribute(1, port::StatusCommand), "COPY");
    unlock_all(&locker);
    EXPECT_EQ(attribute(1, port::StatusCommand), "CT");
}

TEST_F(SessionPort, RecordsOfTheDeadAreRemovedByWhoLooks) {
    run("one: port -> 1 | two: port -> 2 | three: port -> 3");
    EXPECT_EQ(recorded_ports(), (std::vector<std::string>{"1", "2", "3"}));
    run("two: killed | three: killed");
    EXPECT_EQ(recorded_ports(), (std::vector<std::string>{"1"}));
}

TEST_F(SessionPort, TheRecordGoesWithTheContext) {
    const std::string path = *port_directory(&dp_) + "/1";
    {
        DP dp;
        ASSERT_EQ(*session_port(&dp), 1);
        ASSERT_TRUE(port_directory(&dp_));
        EXPECT_TRUE(std::filesystem::exists(path));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SessionPort, OtherFilesInTheDirectoryOfRecordsStay) {
    const std::string path = *port_directory(&dp_) + "/notes";
    std::ofstream(path) << "x";
    EXPECT_EQ(recorded_ports(), (std::vector<std::string>{"notes"}));
}

TEST_F(SessionPort, System1027IsTheDirectoryOfRecords) {
    run("one: port -> 1");
    EXPECT_EQ(system_number(&dp_, 1027).str(), system_.path() + "/ports");
    EXPECT_TRUE(std::filesystem::exists(system_.path() + "/ports/1"));
}

// --- messages --------------------------------------------------------------------------------------------------------

TEST_F(SessionPort, MessagesArriveInTheOrderOfSending) {
    run("one: port -> 1 | two: send 1 VMSG:hello | two: send 1 VMSG:again | three: send 1 plain |"
        "one: messages -> <hello><again><plain> | one: messages -> none");
}

TEST_F(SessionPort, AMessageMovesTheEventCounterOnce) {
    run("one: port -> 1 | one: events -> 0 | two: send 1 a | one: events -> 1 | one: events -> 1 | two: send 1 b |"
        "one: events -> 2 | one: messages -> <a><b> | one: events -> 2");
}

TEST_F(SessionPort, AMessageToNobodyIsAnError) {
    run("one: port -> 1 | one: send 9 x -> port 9 is not logged on | two: port -> 2 | two: killed |"
        "one: send 2 x -> port 2 is not logged on");
    EXPECT_EQ(VELDAThreadSendMessage(&dp_, 9, "x"), ESRCH);
    EXPECT_EQ(VELDAThreadSendMessage(&dp_, 1, "x"), 0);
}

TEST_F(SessionPort, ANewSessionDoesNotGetItsPredecessorsMessages) {
    run("one: port -> 1 | two: send 1 old | one: killed | three: port -> 1 | three: messages -> none |"
        "two: send 1 new | three: messages -> <new>");
}

TEST_F(SessionPort, ASessionMaySendToItself) { run("one: port -> 1 | one: send 1 me | one: messages -> <me>"); }

TEST_F(SessionPort, AMessageOfAnyBytesArrivesWhole) {
    ASSERT_EQ(*session_port(&dp_), 1);
    const std::string text = std::string("a\0b\n", 4) + marks("^]") + std::string(100000, 'x');
    ASSERT_TRUE(send_message(&dp_, 1, text));
    EXPECT_EQ(take_messages(&dp_), std::vector<std::string>{text});
}

TEST_F(SessionPort, TooLongAndTooManyMessagesAreRefused) {
    ASSERT_EQ(*session_port(&dp_), 1);
    EXPECT_EQ(send_message(&dp_, 1, std::string(1048577, 'x')).error().message,
              "message of 1048577 bytes is too long: the longest has 1048576");
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(send_message(&dp_, 1, "x"));
    EXPECT_EQ(send_message(&dp_, 1, "x").error().message, "port 1 has 1000 messages that wait already");
    EXPECT_EQ(take_messages(&dp_).size(), 1000u);
    EXPECT_TRUE(send_message(&dp_, 1, "x"));
}

// --- signals ---------------------------------------------------------------------------------------------------------

TEST_F(SessionPort, KillProcessReachesAProcessByItsIdOrItsPort) {
    run("one: port -> 1 | two: port -> 2");
    EXPECT_EQ(VELDAKillProcess(&dp_, 0, actor("one").pid(), 1), 0);
    EXPECT_EQ(VELDAKillProcess(&dp_, SIGKILL, 2, 0), 0);
    run("two: killed | three: port -> 2");
}

TEST_F(SessionPort, KillProcessRefusesGroupsAndNobody) {
    EXPECT_EQ(VELDAKillProcess(&dp_, 0, 0, 1), EINVAL);
    EXPECT_EQ(VELDAKillProcess(&dp_, 0, -1, 1), EINVAL);
    EXPECT_EQ(VELDAKillProcess(&dp_, 0, 7, 0), ESRCH);
    EXPECT_EQ(VELDAKillProcess(&dp_, 0, getpid(), 2), EINVAL);
    EXPECT_EQ(VELDAKillProcess(&dp_, 9999, getpid(), 1), EINVAL);
}
