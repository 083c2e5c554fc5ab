// The entries of the lock family, as programs call them.
#include "runtime/lock/lock.h"

#include <cerrno>

#include "tests/runtime/lock/actors.h"
#include "tests/support/marks.h"

using namespace velda;
using namespace velda::test;

class LockEntries : public LockInterleaving {
  protected:
    DP one_, two_;
};

TEST_F(LockEntries, Mode256TakesAnExecutionLockWithoutWaiting) {
    EXPECT_EQ(VLibELOCK_IIII(&one_, 256, 0, 255), 1);
    EXPECT_EQ(VLibELOCK_IIII(&one_, 256, 0, 255), 1);
    EXPECT_EQ(VLibELOCK_IIII(&two_, 256, 0, 255), 0);
    EXPECT_EQ(VLibELOCK_IIII(&two_, 256, 0, 254), 1);
}

TEST_F(LockEntries, Operation1ReleasesOne) {
    ASSERT_EQ(VLibELOCK_IIII(&one_, 256, 0, 3), 1);
    EXPECT_EQ(VLibELOCK_IIII(&two_, 0, 1, 3), 0);
    EXPECT_EQ(VLibELOCK_IIII(&one_, 0, 1, 3), 1);
    EXPECT_EQ(VLibELOCK_IIII(&one_, 0, 1, 3), 0);
    EXPECT_EQ(VLibELOCK_IIII(&two_, 256, 0, 3), 1);
}

TEST_F(LockEntries, Mode0WaitsForTheLock) {
    ASSERT_EQ(VLibELOCK_IIII(&one_, 0, 0, 4), 1);
    std::thread waiter([] {
        DP dp;
        EXPECT_EQ(VLibELOCK_IIII(&dp, 0, 0, 4), 1);
    });
    while (waiting_sessions() != 1) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(VLibELOCK_IIII(&one_, 0, 1, 4), 1);
    waiter.join();
}

TEST_F(LockEntries, Operation2ReleasesExecutionLocksAlone) {
    ASSERT_EQ(VLibELOCK_IIII(&one_, 256, 0, 5), 1);
    ASSERT_TRUE(lock_record(&one_, TestFile, "K", Wait::No).granted());
    EXPECT_EQ(VLibELOCK_IIII(&one_, 0, 2, 0), 1);
    EXPECT_EQ(VLibELOCK_IIII(&two_, 256, 0, 5), 1);
    EXPECT_TRUE(holds_record(&one_, TestFile, "K"));
}

TEST_F(LockEntries, OtherModesTakeNothing) {
    EXPECT_EQ(VLibELOCK_IIII(&one_, 1, 0, 6), 0);
    EXPECT_EQ(one_.last_error, EINVAL);
    EXPECT_EQ(VLibELOCK_IIII(&one_, 256, 7, 6), 0);
    EXPECT_EQ(VLibELOCK_IIII(&two_, 256, 0, 6), 1);
}

TEST_F(LockEntries, ReleaseAllFreesRecordAndExecutionLocksButKeepsThePort) {
    ASSERT_EQ(VLibELOCK_IIII(&one_, 256, 0, 7), 1);
    ASSERT_TRUE(lock_record(&one_, TestFile, "K", Wait::No).granted());
    EXPECT_EQ(VLibFRELEASEALL_I(&one_), 1);
    EXPECT_EQ(VLibELOCK_IIII(&two_, 256, 0, 7), 1);
    EXPECT_TRUE(lock_record(&two_, TestFile, "K", Wait::No).granted());
    DP three;
    EXPECT_EQ(lock_record(&three, TestFile, "K", Wait::No).holder.port, 2);
    EXPECT_EQ(VLibFRELEASEALL_I(&three), 1);
}

TEST_F(LockEntries, ThereIsNoLockServer) {
    EXPECT_EQ(vDLS_LockServerActive(&one_), 0);
    char *line = const_cast<char *>("");
    EXPECT_NE(vDLS_ClientReadNextInfo(&one_, &line), 0);
    EXPECT_EQ(line, nullptr);
    EXPECT_EQ(VELDAReturnLockInfo(&one_, 100, nullptr), 1);
}

TEST_F(LockEntries, ReturnLockInfoTellsTheLocalLocks) {
    ASSERT_TRUE(lock_record(&one_, TestFile, "K*1", Wait::No).granted());
    ASSERT_EQ(VLibELOCK_IIII(&two_, 256, 0, 7), 1);
    VAR target;
    EXPECT_EQ(VELDAReturnLockInfo(&one_, 101, &target), 0);
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(shown(target.view()), "1]1]K*1]R]11]7]" + pid + "]local^2]7]]E]0]0]" + pid + "]local");
    EXPECT_EQ(VELDAReturnLockInfo(&one_, 99, &target), EINVAL);
}

TEST_F(LockEntries, ReturnLockInfoTellsThePortsThatWaitInTheirOrder) {
    ASSERT_EQ(VLibELOCK_IIII(&one_, 256, 0, 8), 1);
    std::vector<std::thread> waiters;
    for (std::size_t waiting = 1; waiting <= 2; ++waiting) {
        waiters.emplace_back([] {
            DP dp;
            EXPECT_EQ(VLibELOCK_IIII(&dp, 0, 0, 8), 1);
        });
        while (waiting_sessions() != waiting) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    VAR target;
    EXPECT_EQ(VELDAReturnLockInfo(&one_, 101, &target), 0);
    EXPECT_EQ(shown(target(1, 8).view()) + " " + shown(target(1, 9).view()), "local 2\\3");
    EXPECT_EQ(VLibELOCK_IIII(&one_, 0, 1, 8), 1);
    for (std::thread &waiter : waiters) waiter.join();
}
