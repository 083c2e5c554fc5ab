// Transactions of several sessions, step by step: processes and threads.
#include <cerrno>

#include "tests/runtime/transaction/session_fixture.h"
#include "tests/support/interleaving.h"

namespace velda::test {

class TransactionInterleaving : public Interleaving {
  protected:
    TransactionInterleaving() {
        Session maker;
        VAR message;
        const VAR operands(system_ / "F");
        EXPECT_EQ(velda_create_file(maker.dp(), &operands, &message), 1) << message.str();
    }

    std::string perform(DP *dp, const std::string &command) override {
        std::istringstream words(command);
        std::string verb, key, record;
        words >> verb >> key >> record;
        VAR &file = dp->state<OpenFile>().cell;
        if (file.form == 0) {
            const VAR name(system_ / "F");
            VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, &file, nullptr);
        }
        const VAR key_cell(key), record_cell(record);
        VAR setting;
        if (verb == "begin") return velda_transaction_begin(dp, nullptr) ? "done" : "error";
        if (verb == "commit") return velda_transaction_commit(dp, nullptr) ? "done" : "error";
        if (verb == "abort") return velda_transaction_abort(dp, nullptr) ? "done" : "error";
        if (verb == "write" || verb == "try") {
            const int flags = VELDA_REPORT_ERRORS | (verb == "try" ? VELDA_WRITE_NOWAIT : 0);
            const int result = VLibFNEWWRITE_IIBBBIB(dp, flags, &file, &record_cell, &key_cell, 0, &setting);
            return result == 1 ? "done" : result == 2 ? "locked" : "error " + setting.str();
        }
        if (verb == "read") {
            VAR target;
            return VLibFNEWREAD_IIBBBIB(dp, 0, &file, &target, &key_cell, 0, nullptr) == 1 ? target.str() : "(none)";
        }
        return "unknown command";
    }

  private:
    struct OpenFile {
        VAR cell;
    };
};

TEST_F(TransactionInterleaving, ASecondTransactionThatWritesTheRecordWaitsForTheEndOfTheFirst) {
    run("one: begin | one: write K 1 | two: begin | two: write K 2 -> waits | one: commit | two: answers done |"
        "three: read K -> 1 | two: commit | three: read K -> 2");
}

TEST_F(TransactionInterleaving, OrGetsTheLockedResult) {
    run("one: begin | one: write K 1 | two: begin | two: try K 2 -> locked | one: abort | two: try K 2 | two: commit |"
        "one: read K -> 2");
}

TEST_F(TransactionInterleaving, ATransactionOfADeadProcessLeavesNothingAndItsLocksAreFree) {
    run("one: begin | one: write K 1 | two: begin | two: write K 2 -> waits | one: killed | two: answers done |"
        "two: read K -> 2 | three: read K -> (none) | two: commit | three: read K -> 2");
}

TEST_F(TransactionInterleaving, TwoSessionsOfOneProcessDoNotSeeEachOthersUpdates) {
    run("thread1: begin | thread2: begin | thread1: write K 1 | thread2: read K -> (none) | thread2: write L 2 |"
        "thread1: read L -> (none) | thread1: commit | thread2: read K -> 1 | thread2: abort |"
        "thread1: read L -> (none)");
}

TEST_F(TransactionInterleaving, OfTwoThatWaitForEachOtherTheLaterOneIsRefused) {
    const std::string deadlock = std::to_string(EDEADLK);
    run("one: begin | one: write A 1 | two: begin | two: write B 2 | one: write B 1 -> waits |"
        "two: write A 2 -> error " +
        deadlock +
        " | one: still waits | two: abort | one: answers done | one: commit | three: read A -> 1 |"
        "three: read B -> 1");
}

TEST_F(TransactionInterleaving, OfThreeInACircleOneIsRefused) {
    run("one: begin | one: write A 1 | two: begin | two: write B 2 | three: begin | three: write C 3 |"
        "one: write B 1 -> waits | two: write C 2 -> waits | three: write A 3 -> error " +
        std::to_string(EDEADLK) + " | three: abort | two: answers done | two: commit | one: answers done");
}

TEST_F(TransactionInterleaving, AWaitThatLeadsToNobodyWhoWaitsIsNotRefused) {
    run("one: begin | one: write A 1 | two: begin | two: write B 2 | two: write A 2 -> waits | two: still waits |"
        "one: write C 1 | one: commit | two: answers done");
}

}  // namespace velda::test
