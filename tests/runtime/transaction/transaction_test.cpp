// The rules of transactions, one session or two in one process.
#include <cerrno>

#include "tests/runtime/transaction/session_fixture.h"

namespace velda::test {

// --- begin, commit, abort ---

TEST_F(TransactionTest, CommitMakesTheUpdates) {
    one.write("old", "before");
    ASSERT_TRUE(one.begin());
    one.write("new", "a^b]c");
    one.write("old", "after");
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read("new"), "a^b]c");
    EXPECT_EQ(two.read("old"), "after");
    EXPECT_FALSE(one.active());
}

TEST_F(TransactionTest, AbortLeavesNoTraceOfTheUpdates) {
    one.write("old", "before");
    ASSERT_TRUE(one.begin());
    one.write("new", "x");
    one.remove("old");
    ASSERT_TRUE(one.abort());
    EXPECT_EQ(one.read("new"), "(none)");
    EXPECT_EQ(one.read("old"), "before");
    EXPECT_FALSE(one.active());
}

TEST_F(TransactionTest, ASecondBeginIsAnErrorAndTheFirstStaysActive) {
    ASSERT_TRUE(one.begin());
    one.write("k", "x");
    EXPECT_FALSE(one.begin());
    EXPECT_EQ(one.dp()->last_error, EALREADY);
    EXPECT_EQ(one.error(), "a transaction is active already: it must end before another one begins");
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read("k"), "x");
}

TEST_F(TransactionTest, ACommitWithoutABeginIsAnError) {
    EXPECT_FALSE(one.commit());
    EXPECT_EQ(one.dp()->last_error, EINVAL);
    EXPECT_EQ(one.error(), "no transaction is active: there is nothing to commit");
}

TEST_F(TransactionTest, AnAbortWithoutABeginIsAnError) {
    EXPECT_FALSE(one.abort());
    EXPECT_EQ(one.dp()->last_error, EINVAL);
    EXPECT_EQ(one.error(), "no transaction is active: there is nothing to abort");
}

// --- what is seen ---

TEST_F(TransactionTest, TheSessionReadsWhatItWroteAndOthersDoNot) {
    two.write("k", "before");
    ASSERT_TRUE(one.begin());
    one.write("k", "after");
    EXPECT_EQ(one.read("k"), "after");
    EXPECT_EQ(two.read("k"), "before");
    one.remove("k");
    EXPECT_EQ(one.read("k"), "(none)");
    EXPECT_EQ(two.read("k"), "before");
}

TEST_F(TransactionTest, AWriteOfOneAttributeFindsTheHeldRecord) {
    ASSERT_TRUE(one.begin());
    one.write("k", "a^b");
    const VAR value("c"), key("k");
    ASSERT_EQ(VLibFNEWWRITE_IIBBBIB(one.dp(), VELDA_ONE_ATTRIBUTE, &one.file, &value, &key, 2, nullptr), 1);
    EXPECT_EQ(one.read("k"), "a^c");
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read("k"), "a^c");
}

// --- locks ---

TEST_F(TransactionTest, AWrittenRecordIsLockedToTheEnd) {
    ASSERT_TRUE(one.begin());
    one.write("k", "x");
    EXPECT_EQ(two.read_locked("k"), 2);
    one.release("k");
    EXPECT_EQ(two.read_locked("k"), 2);
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read_locked("k"), 1);
}

TEST_F(TransactionTest, ALockTakenInATransactionIsKeptThoughItIsReleased) {
    ASSERT_TRUE(one.begin());
    one.read_locked("k");
    EXPECT_EQ(one.release("k"), 1);
    EXPECT_EQ(two.read_locked("k"), 2);
    ASSERT_TRUE(one.abort());
    EXPECT_EQ(two.read_locked("k"), 0);
}

TEST_F(TransactionTest, ALockFromBeforeOutlivesTheTransactionUnlessItIsReleased) {
    one.read_locked("kept");
    one.read_locked("released");
    one.read_locked("written");
    ASSERT_TRUE(one.begin());
    one.release("released");
    one.write("written", "x");
    one.write("kept", "x", VELDA_WRITE_KEEP_LOCK);
    EXPECT_EQ(two.read_locked("released"), 2);
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read_locked("released"), 0);
    EXPECT_EQ(two.read_locked("written"), 1);
    EXPECT_EQ(two.read_locked("kept"), 2);
}

TEST_F(TransactionTest, ASecondTransactionGetsTheLockedResultWhereItDoesNotWait) {
    ASSERT_TRUE(one.begin());
    one.write("k", "one");
    ASSERT_TRUE(two.begin());
    EXPECT_EQ(two.write("k", "two", VELDA_WRITE_NOWAIT), 2);
    EXPECT_EQ(two.setting.to_integer(), VELDAGetPortNumber(one.dp()));
    EXPECT_EQ(two.remove("k", VELDA_WRITE_NOWAIT), 2);
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.write("k", "two", VELDA_WRITE_NOWAIT), 1);
    ASSERT_TRUE(two.commit());
    EXPECT_EQ(one.read("k"), "two");
}

}  // namespace velda::test
