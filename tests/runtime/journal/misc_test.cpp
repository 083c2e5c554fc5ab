// The codes of VediLoggerMisc, and blocks of set files.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

#include "runtime/journal/change_lock.h"
#include "runtime/journal/injection.h"
#include "tests/runtime/journal/fixture.h"

using namespace std::chrono_literals;
using velda::test::in_child;
using velda::test::JournalTest;
using velda::test::ScratchSession;

namespace {

class Misc : public JournalTest {
  protected:
    Misc() { config = mapped(); }

    void name_file(int set, int file, const std::string &path) {
        std::ofstream(path).flush();
        std::strncpy(config->sets[set - 1].files[file - 1].path, path.c_str(), 191);
    }

    // Whether another process gets the lock of `take` within a short time.
    bool another_process_gets(int take, int leave, int argument_of_take, int argument_of_leave) {
        const int code = in_child([=] {
            DP *const child = velda_getdp();
            alarm(1);
            if (VediLoggerMisc(child, take, argument_of_take) != 0) return 2;
            return VediLoggerMisc(child, leave, argument_of_leave);
        });
        EXPECT_TRUE(code == 0 || code == 128 + SIGALRM) << code;
        return code == 0;
    }
    bool another_gets_the_table() { return another_process_gets(2, 2, 1, 4); }
    bool another_gets_the_change() { return another_process_gets(25, 26, 0, 0); }

    VELDALoggerConfig *config;
};

}  // namespace

TEST_F(Misc, AnUnknownCodeIsInvalid) {
    for (const int code : {0, 4, 5, 12, 14, 22, 27, -1}) {
        errno = 0;
        EXPECT_EQ(VediLoggerMisc(dp, code), 22) << code;
        EXPECT_EQ(errno, 22) << code;
    }
}

TEST_F(Misc, EveryCodeFailsWithoutAConfiguration) {
    std::filesystem::remove_all(system_ / "config");
    const ScratchSession other;
    for (const int code : {1, 3, 7, 16, 17, 23, 24, 25, 26}) EXPECT_EQ(VediLoggerMisc(other, code), 2) << code;
    EXPECT_EQ(VediLoggerMisc(other, 13, "/tmp"), 2);
    EXPECT_EQ(VediLoggerMisc(other, 2, 1), 2);
    EXPECT_EQ(VediLoggerMisc(other, 6, 0), 2);
}

TEST_F(Misc, SavingRefreshingAndPublishingSucceed) {
    for (const int code : {1, 23, 24}) EXPECT_EQ(VediLoggerMisc(dp, code), 0) << code;
    EXPECT_EQ(VediLoggerMisc(dp, 6, 0), 0);
    EXPECT_EQ(VediLoggerMisc(dp, 6, 1), 22);
}

TEST_F(Misc, ASaveThatFailsSaysWhatCouldNotBeSaved) {
    velda::journal::injection = {1, ENOSPC, -1};
    EXPECT_EQ(VediLoggerMisc(dp, 1), ENOSPC);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(velda_logger_error(dp),
              "cannot save journal configuration '" + config_path() + "': No space left on device");
    EXPECT_EQ(VediLoggerMisc(dp, 1), 0);
}

TEST_F(Misc, TheTableLockExcludesAnotherProcessUntilItIsLeft) {
    ASSERT_EQ(VediLoggerMisc(dp, 2, 1), 0);
    EXPECT_FALSE(another_gets_the_table());
    ASSERT_EQ(VediLoggerMisc(dp, 2, 4), 0);
    EXPECT_TRUE(another_gets_the_table());
}

TEST_F(Misc, TheChangeLockExcludesAnotherProcessUntilItIsLeft) {
    ASSERT_EQ(VediLoggerMisc(dp, 25), 0);
    EXPECT_FALSE(another_gets_the_change());
    ASSERT_EQ(VediLoggerMisc(dp, 26), 0);
    EXPECT_TRUE(another_gets_the_change());
}

TEST_F(Misc, TheTwoLocksAreIndependent) {
    ASSERT_EQ(VediLoggerMisc(dp, 25), 0);
    EXPECT_TRUE(another_gets_the_table());
    EXPECT_EQ(VediLoggerMisc(dp, 26), 0);
}

TEST_F(Misc, ALockThatWasTakenTwiceIsLeftTwice) {
    VediLoggerMisc(dp, 2, 1);
    VediLoggerMisc(dp, 2, 1);
    VediLoggerMisc(dp, 2, 4);
    EXPECT_FALSE(another_gets_the_table());
    VediLoggerMisc(dp, 2, 4);
    EXPECT_TRUE(another_gets_the_table());
}

TEST_F(Misc, ALockThatIsNotHeldCannotBeLeft) {
    EXPECT_EQ(VediLoggerMisc(dp, 2, 4), 1);
    EXPECT_EQ(VediLoggerMisc(dp, 26), 1);
    EXPECT_EQ(VediLoggerMisc(dp, 2, 3), 22);
}

TEST_F(Misc, ALockDiesWithItsProcess) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        VediLoggerMisc(velda_getdp(), 25);
        VediLoggerMisc(velda_getdp(), 2, 1);
        if (write(ready[1], "x", 1) != 1) _exit(1);
        pause();
    }
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_FALSE(another_gets_the_table());
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_TRUE(another_gets_the_table());
    EXPECT_TRUE(another_gets_the_change());
}

TEST_F(Misc, AForkedChildHoldsNothingOfItsParents) {
    VediLoggerMisc(dp, 2, 1);
    DP *const parents = dp;
    EXPECT_EQ(in_child([parents] { return VediLoggerMisc(parents, 2, 4); }), 1);
    EXPECT_FALSE(another_gets_the_table()) << "the child's attempt to leave it took nothing from the parent";
    VediLoggerMisc(dp, 2, 4);
}

TEST_F(Misc, TheTableLockExcludesAnotherSessionOfTheProcess) {
    VediLoggerMisc(dp, 2, 1);
    std::atomic<bool> got{false};
    std::thread other([&got] {
        DP *const session = velda_getdp();
        VediLoggerMisc(session, 2, 1);
        got = true;
        VediLoggerMisc(session, 2, 4);
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(got);
    VediLoggerMisc(dp, 2, 4);
    other.join();
    EXPECT_TRUE(got);
}

TEST_F(Misc, ASessionThatEndsLeavesItsLocks) {
    {
        const ScratchSession other;
        VediLoggerMisc(other, 2, 1);
        VediLoggerMisc(other, 2, 1);
        EXPECT_FALSE(another_gets_the_table());
    }
    EXPECT_TRUE(another_gets_the_table());
}

TEST_F(Misc, ManyProcessesLoseNoIncrementUnderTheTableLock) {
    constexpr int Processes = 4, Rounds = 500;
    pid_t children[Processes];
    for (pid_t &child : children) {
        child = fork();
        if (child != 0) continue;
        DP *const session = velda_getdp();
        auto *const shared = VediLoggerInit(session, 1);
        for (int n = 0; n < Rounds; ++n) {
            VediLoggerMisc(session, 2, 1);
            const volatile uint32_t before = shared->updateCount;
            if (n % 50 == 0) std::this_thread::yield();
            shared->updateCount = before + 1;
            VediLoggerMisc(session, 2, 4);
        }
        _exit(0);
    }
    for (const pid_t child : children) waitpid(child, nullptr, 0);
    EXPECT_EQ(config->updateCount, static_cast<uint32_t>(Processes * Rounds));
}

TEST_F(Misc, ClosingTheSetReachesEveryFileOfTheCurrentSet) {
    EXPECT_EQ(VediLoggerMisc(dp, 3), 0) << "no set is current";
    name_file(2, 1, system_ / "one");
    name_file(2, 16, system_ / "two");
    config->currentSet = 2;
    EXPECT_EQ(VediLoggerMisc(dp, 3), 0);
    std::filesystem::remove(system_ / "two");
    EXPECT_EQ(VediLoggerMisc(dp, 3), EIO) << "a file that is gone";
    EXPECT_EQ(velda_logger_error(dp),
              "cannot find journal file '" + (system_ / "two") + "': No such file or directory");
}

TEST_F(Misc, ABatchThatWasNotBegunCannotEnd) {
    EXPECT_EQ(VediLoggerMisc(dp, 17), 1);
    EXPECT_EQ(VediLoggerMisc(dp, 16), 0);
    EXPECT_EQ(VediLoggerMisc(dp, 16), 0);
    EXPECT_EQ(VediLoggerMisc(dp, 17), 0);
    EXPECT_EQ(VediLoggerMisc(dp, 17), 0);
    EXPECT_EQ(VediLoggerMisc(dp, 17), 1);
}

TEST_F(Misc, TheStatusIsThatOfTheConfigurationAndInactiveWithoutOne) {
    config->status = 2;
    EXPECT_EQ(VediLoggerStatus(dp), 2);
    std::filesystem::remove_all(system_ / "config");
    EXPECT_EQ(VediLoggerStatus(ScratchSession()), 0);
}

TEST_F(Misc, ABlockIsWrittenAtTheOffsetOfTheSetsFile) {
    name_file(3, 2, system_ / "log");
    std::ofstream(system_ / "log") << "abcdefgh";
    EXPECT_EQ(VELDAWriteLogFile(dp, 3, 2, 2, "XY", 2), 0);
    EXPECT_EQ(content(system_ / "log"), "abXYefgh");
}

TEST_F(Misc, ABlockOfAFileThatIsNotConfiguredIsAbsent) { EXPECT_EQ(VELDAWriteLogFile(dp, 3, 2, 0, "X", 1), 2); }

TEST_F(Misc, ABlockOfABadSetFileOrOffsetIsInvalid) {
    EXPECT_EQ(VELDAWriteLogFile(dp, 17, 1, 0, "X", 1), 22);
    EXPECT_EQ(VELDAWriteLogFile(dp, 0, 1, 0, "X", 1), 22);
    EXPECT_EQ(VELDAWriteLogFile(dp, 1, 0, 0, "X", 1), 22);
    EXPECT_EQ(VELDAWriteLogFile(dp, 1, 17, 0, "X", 1), 22);
    EXPECT_EQ(VELDAWriteLogFile(dp, 1, 1, -1, "X", 1), 22);
}
