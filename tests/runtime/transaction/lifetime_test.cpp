// The end of a transaction with its command level, its session, its process.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <thread>

#include "runtime/process/command_level.h"
#include "tests/runtime/transaction/session_fixture.h"

namespace velda::test {

class TransactionLifetimeTest : public TransactionTest {
  protected:
    // Runs `body` as a command of session one.
    void run(const std::function<void()> &body) { run_command_level(one.dp(), "TEST", body); }
};

TEST_F(TransactionLifetimeTest, ItIsAbortedAtTheEndOfTheCommandThatBeganIt) {
    run([&] {
        ASSERT_TRUE(one.begin());
        one.write("k", "x");
    });
    EXPECT_FALSE(one.active());
    EXPECT_EQ(one.read("k"), "(none)");
    EXPECT_EQ(two.read_locked("k"), 0);
}

TEST_F(TransactionLifetimeTest, StopAndExitAbortIt) {
    for (const std::function<void()> &end : {std::function<void()>([&] { VLibCSTOP_VI(one.dp(), 1, 0); }),
                                             std::function<void()>([&] { VLibCEXIT_VI(one.dp(), 3, 0); })}) {
        run([&] {
            ASSERT_TRUE(one.begin());
            one.write("k", "x");
            end();
        });
        EXPECT_FALSE(one.active());
        EXPECT_EQ(one.read("k"), "(none)");
    }
}

TEST_F(TransactionLifetimeTest, AnExecutedCommandTakesPartInItsCallersTransaction) {
    run([&] {
        ASSERT_TRUE(one.begin());
        run([&] { one.write("k", "x"); });
        EXPECT_TRUE(one.active());
        EXPECT_EQ(one.read("k"), "x");
        ASSERT_TRUE(one.commit());
    });
    EXPECT_EQ(two.read("k"), "x");
}

TEST_F(TransactionLifetimeTest, ACommandMayBeginOneForItsCaller) {
    run([&] {
        run([&] { ASSERT_EQ(velda_transaction_begin_for_caller(one.dp(), nullptr), 1); });
        EXPECT_TRUE(one.active());
        one.write("k", "x");
    });
    EXPECT_FALSE(one.active());
    EXPECT_EQ(two.read("k"), "(none)");
}

TEST_F(TransactionLifetimeTest, TheEndOfTheSessionAbortsIt) {
    {
        Session third;
        third.open(path("A"));
        ASSERT_TRUE(third.begin());
        third.write("k", "x");
    }
    EXPECT_EQ(two.read("k"), "(none)");
    EXPECT_EQ(two.read_locked("k"), 0);
}

TEST_F(TransactionLifetimeTest, TheEndOfAThreadAbortsTheTransactionOfItsSession) {
    std::thread([&] {
        DP *const dp = velda_getdp();
        VAR file;
        const VAR name(path("A")), key("k"), record("x");
        VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, &file, nullptr);
        ASSERT_EQ(velda_transaction_begin(dp, nullptr), 1);
        ASSERT_EQ(VLibFNEWWRITE_IIBBBIB(dp, 0, &file, &record, &key, 0, nullptr), 1);
    }).join();
    EXPECT_EQ(two.read("k"), "(none)");
    EXPECT_EQ(two.read_locked("k"), 0);
}

TEST_F(TransactionLifetimeTest, AForkedChildIsNotInItsParentsTransaction) {
    ASSERT_TRUE(one.begin());
    one.write("k", "parents");
    const pid_t child = fork();
    if (child == 0) {
        bool right = !one.active() && !one.commit() && !one.abort() && !one.begin();
        Session own;
        VAR file;
        own.open_file(path("A"), own.file);
        right = right && own.read("k") == "(none)" && own.read_locked("k") == 2 && own.begin();
        right = right && own.write("c", "childs") == 1 && own.commit();
        _exit(right ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(one.active());
    EXPECT_EQ(two.read("c"), "childs");
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read("k"), "parents");
}

TEST_F(TransactionLifetimeTest, AScopeThatIsNotCommittedIsAborted) {
    DP *const before = velda_set_context(one.dp());
    {
        Transaction scope;
        EXPECT_TRUE(scope.is_own());
        one.write("k", "x");
        EXPECT_TRUE(transaction_active());
        Transaction inner;
        EXPECT_FALSE(inner.is_own());
        EXPECT_TRUE(inner.commit());
        EXPECT_TRUE(transaction_active());
    }
    EXPECT_FALSE(transaction_active());
    EXPECT_EQ(one.read("k"), "(none)");
    {
        Transaction scope;
        one.write("k", "x");
        EXPECT_TRUE(scope.commit());
        EXPECT_FALSE(transaction_active());
        EXPECT_FALSE(scope.commit()) << "only once";
    }
    EXPECT_EQ(two.read("k"), "x");
    velda_set_context(before);
}

}  // namespace velda::test
