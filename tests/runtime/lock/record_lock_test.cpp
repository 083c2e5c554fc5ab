#include "runtime/lock/record_lock.h"

#include "tests/runtime/lock/actors.h"

using namespace velda;
using namespace velda::test;

class RecordLock : public LockInterleaving {};

TEST_F(RecordLock, AFreeRecordIsGranted) { run("one: lock K"); }

TEST_F(RecordLock, ARecordLockedByAnotherProcessIsBusy) { run("one: lock K | two: try K -> busy"); }

TEST_F(RecordLock, AWaiterIsGrantedAtTheRelease) {
    run("one: lock K | two: lock K -> waits | one: release K | two: granted | one: try K -> busy");
}

TEST_F(RecordLock, WaitersAreServedFirstComeFirstServed) {
    run("one: lock K | two: lock K -> waits | three: lock K -> waits | four: lock K -> waits |"
        "one: release K | two: granted | three: still waits | four: still waits |"
        "two: release K | three: granted | four: still waits | three: release K | four: granted");
}

TEST_F(RecordLock, WhoReleasesAndLocksAgainStandsBehindTheWaiters) {
    run("one: lock K | two: lock K -> waits | one: release K | one: lock K -> waits | two: granted | one: still waits |"
        "two: release K | one: granted");
}

TEST_F(RecordLock, TheSameOwnerIsGrantedAgainWithoutCounting) {
    run("one: lock K | one: lock K | one: try K | one: release K | one: release K -> not held | two: try K");
}

TEST_F(RecordLock, OtherKeysAndOtherFilesAreOtherLocks) {
    run("one: lock K | two: try L | two: try KK");
    DP dp;
    EXPECT_TRUE(lock_record(&dp, OtherFile, "K", Wait::No).granted());
    EXPECT_EQ(lock_record(&dp, TestFile, "K", Wait::No).result, LockResult::Busy);
}

TEST_F(RecordLock, BusyNamesTheHolder) {
    run("one: lock K");
    DP dp;
    const LockOutcome outcome = lock_record(&dp, TestFile, "K", Wait::No);
    ASSERT_EQ(outcome.result, LockResult::Busy);
    EXPECT_EQ(outcome.holder.pid, actor("one").pid());
    EXPECT_EQ(outcome.holder.port, 1);
    EXPECT_EQ(record_holder(&dp, TestFile, "K")->port, 1);
}

TEST_F(RecordLock, OnlyTheHolderReleases) { run("one: lock K | two: release K -> not held | three: try K -> busy"); }

TEST_F(RecordLock, ReleaseAllFreesEveryLockOfTheOwnerAndNoOther) {
    run("one: lock A | one: lock B | one: exec 5 | two: lock C | one: releaseall |"
        "three: try A | three: try B | three: tryexec 5 | three: try C -> busy");
}

TEST_F(RecordLock, TwoContextsOfOneProcessAreTwoOwners) {
    run("thread1: lock K | thread2: try K -> busy | thread2: release K -> not held | thread2: lock K -> waits |"
        "thread1: release K | thread2: granted");
}

TEST_F(RecordLock, AContextThatEndsFreesItsLocks) {
    DP other;
    {
        DP dp;
        ASSERT_TRUE(lock_record(&dp, TestFile, "K", Wait::No).granted());
        ASSERT_EQ(lock_record(&other, TestFile, "K", Wait::No).result, LockResult::Busy);
    }
    EXPECT_TRUE(lock_record(&other, TestFile, "K", Wait::No).granted());
}

TEST_F(RecordLock, AForkedChildIsANewOwner) {
    DP dp;
    ASSERT_TRUE(lock_record(&dp, TestFile, "K", Wait::No).granted());
    const pid_t child = fork();
    if (child == 0) {
        const bool owns = holds_record(&dp, TestFile, "K") || unlock_record(&dp, TestFile, "K");
        unlock_all(&dp);
        const bool busy = lock_record(&dp, TestFile, "K", Wait::No).result == LockResult::Busy;
        const bool own = lock_record(&dp, TestFile, "L", Wait::No).granted();
        _exit(!owns && busy && own ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(holds_record(&dp, TestFile, "K"));
    EXPECT_TRUE(lock_record(&dp, TestFile, "L", Wait::No).granted());  // the child's locks ended with it
}

TEST_F(RecordLock, KeysToSixtyFourKilobytesAreExact) {
    DP one, two;
    std::string key(65536, 'k');
    ASSERT_TRUE(lock_record(&one, TestFile, key, Wait::No).granted());
    EXPECT_EQ(lock_record(&two, TestFile, key, Wait::No).result, LockResult::Busy);
    key.back() = 'l';
    EXPECT_TRUE(lock_record(&two, TestFile, key, Wait::No).granted());
    EXPECT_TRUE(unlock_record(&two, TestFile, key));
}

TEST_F(RecordLock, ALongerKeyIsRefusedByName) {
    DP dp;
    const LockOutcome outcome = lock_record(&dp, TestFile, std::string(65537, 'k'), Wait::No);
    ASSERT_EQ(outcome.result, LockResult::Failed);
    EXPECT_EQ(outcome.error.message, "cannot lock a key of 65537 bytes: the longest has 65536");
}

TEST_F(RecordLock, KeysOfAnyBytesAndTheEmptyKeyWork) {
    DP one, two;
    for (const std::string &key :
         {std::string(), std::string(1, '\0'), std::string(2, '\0'), std::string("a\xFE\xFD")}) {
        EXPECT_TRUE(lock_record(&one, TestFile, key, Wait::No).granted());
        EXPECT_EQ(lock_record(&two, TestFile, key, Wait::No).result, LockResult::Busy);
    }
}

TEST_F(RecordLock, ReportsShowHolderWaitersKindAndTime) {
    run("one: lock K | two: lock K -> waits | three: lock K -> waits | one: exec 9");
    const auto locks = all_locks();
    ASSERT_TRUE(locks);
    ASSERT_EQ(locks->size(), 2u);
    const LockInfo &record = (*locks)[0].kind == LockKind::Record ? (*locks)[0] : (*locks)[1];
    const LockInfo &execution = (*locks)[0].kind == LockKind::Record ? (*locks)[1] : (*locks)[0];
    EXPECT_EQ(record.key, "K");
    EXPECT_EQ(record.file, TestFile);
    EXPECT_EQ(record.holder.pid, actor("one").pid());
    ASSERT_EQ(record.waiters.size(), 2u);
    EXPECT_EQ(record.waiters[0].pid, actor("two").pid());
    EXPECT_EQ(record.waiters[1].pid, actor("three").pid());
    EXPECT_NEAR(static_cast<double>(record.taken_seconds), static_cast<double>(time(nullptr)), 5);
    EXPECT_EQ(execution.kind, LockKind::Execution);
    EXPECT_EQ(execution.key, "9");
    EXPECT_EQ(execution.holder.pid, actor("one").pid());
}

TEST_F(RecordLock, OtherHolderDoesNotNameTheAsker) {
    DP one, two;
    ASSERT_TRUE(lock_record(&one, TestFile, "K", Wait::No).granted());
    EXPECT_FALSE(other_holder(&one, TestFile, "K"));
    EXPECT_TRUE(record_holder(&one, TestFile, "K"));
    EXPECT_EQ(other_holder(&two, TestFile, "K")->context, one.serial);
    EXPECT_FALSE(other_holder(&two, TestFile, "L"));
}

TEST_F(RecordLock, UnlockFileFreesTheLocksOfOneFile) {
    DP one, two;
    ASSERT_TRUE(lock_record(&one, TestFile, "K", Wait::No).granted());
    ASSERT_TRUE(lock_record(&one, OtherFile, "K", Wait::No).granted());
    unlock_file(&one, TestFile);
    EXPECT_TRUE(lock_record(&two, TestFile, "K", Wait::No).granted());
    EXPECT_EQ(lock_record(&two, OtherFile, "K", Wait::No).result, LockResult::Busy);
}

// --- death -------------------------------------------------------------------------------------------------

TEST_F(RecordLock, AKilledHoldersLockIsFree) { run("one: lock K | one: killed | two: try K"); }

TEST_F(RecordLock, AKilledHoldersLockGoesToTheNextInLine) {
    const auto begin = std::chrono::steady_clock::now();
    run("one: lock K | two: lock K -> waits | three: lock K -> waits | one: killed | two: granted | three: still waits "
        "|"
        "two: killed | three: granted");
    // Two waits that only the look after a second ended would take two.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1900));
}

TEST_F(RecordLock, AKilledWaiterLosesItsPlace) {
    run("one: lock K | two: lock K -> waits | three: lock K -> waits | two: killed | one: release K | three: granted");
}

TEST_F(RecordLock, AllLocksOfAKilledHolderGoToTheirWaiters) {
    run("one: lock A | one: lock B | one: lock C | two: lock A -> waits | three: lock B -> waits | four: lock C -> "
        "waits |"
        "one: killed | two: granted | three: granted | four: granted");
}

TEST_F(RecordLock, AThreadThatEndsLosesItsContextsLocks) {
    DP kept;
    std::thread([&] { ASSERT_TRUE(lock_record(&kept, TestFile, "K", Wait::No).granted()); }).join();
    DP other;
    EXPECT_TRUE(lock_record(&other, TestFile, "K", Wait::No).granted());
    EXPECT_FALSE(holds_record(&kept, TestFile, "K"));
    EXPECT_EQ(lock_record(&kept, TestFile, "K", Wait::No).result, LockResult::Busy);
}

// --- interrupts --------------------------------------------------------------------------------------------

TEST_F(RecordLock, TheBreakKeyEndsAWaitAndTakesNothing) {
    run("one: lock K | two: lock K -> waits | three: lock K -> waits | two: break key | two: interrupted |"
        "two: holds K -> no | one: release K | three: granted");
}

TEST_F(RecordLock, AnInterruptForAContextEndsItsWaitAtOnce) {
    DP holder;
    ASSERT_TRUE(lock_record(&holder, TestFile, "K", Wait::No).granted());
    // The fastest of a few: the machine may be busy, but not each time.
    auto fastest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 5; ++i) {
        DP *waiting = nullptr;
        std::thread waiter([&] {
            DP dp;
            waiting = &dp;
            EXPECT_EQ(lock_record(&dp, TestFile, "K", Wait::Yes).result, LockResult::Interrupted);
        });
        while (waiting_sessions() != 1) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const auto begin = std::chrono::steady_clock::now();
        raise_interrupt(waiting);
        waiter.join();
        fastest = std::min(fastest, std::chrono::steady_clock::now() - begin);
    }
    EXPECT_LT(fastest, std::chrono::milliseconds(500));
}

// --- execution locks ---------------------------------------------------------------------------------------

TEST_F(RecordLock, ExecutionLocksExcludeByNumber) {
    run("one: tryexec 7 | two: tryexec 7 -> busy | two: tryexec 8 | two: exec 7 -> waits | one: unexec 7 | two: "
        "granted");
}

TEST_F(RecordLock, AnExecutionLockIsNoRecordLockOfTheSameName) { run("one: tryexec 7 | two: try 7"); }

TEST_F(RecordLock, ExecutionLocksOfTheKilledAreFree) { run("one: tryexec 255 | one: killed | two: tryexec 255"); }
