// Transactions in the journal.
#include <signal.h>

#include <chrono>
#include <map>

#include "runtime/journal/log_format.h"
#include "runtime/transaction/steps.h"
#include "tests/runtime/journal/writer_fixture.h"
#include "tests/runtime/transaction/session_fixture.h"

namespace velda::test {

class TransactionRecords : public WriterTest {
  protected:
    using Lines = std::vector<std::string>;
    using Records = std::map<std::string, std::string>;  // "A key" to the record

    void SetUp() override {
        WriterTest::SetUp();
        make_file("A");
        make_file("B", "DURABILITY=SYNC");
        make_file("OUT", "DURABILITY=LAZY LOG=NO");
        make_set(1, 2);
        activate();
    }

    bool begin(const std::string &text = "") {
        const VAR remark(text);
        return velda_transaction_begin(dp, &remark) == 1;
    }
    bool commit(const std::string &text = "") {
        const VAR remark(text);
        return velda_transaction_commit(dp, &remark) == 1;
    }

    // One session's transaction over both files, which may die at a step of its commit.
    int run_transaction(int die_at_step, bool replays = false) {
        Session session;
        VAR a, b;
        session.open_file(path("A"), a);
        session.open_file(path("B"), b);
        if (replays) velda_logger_set_replay(session.dp(), 1);
        if (!session.begin()) return 10;
        session.write_to(a, "k", "x");
        session.write_to(b, "k", "x");
        session.remove_from(b, "gone");
        transaction::steps_to_live = die_at_step;
        const bool done = session.commit();
        transaction::steps_to_live = 0;
        return done ? 0 : 11;
    }
    void put_back() {
        Session session;
        VAR a, b;
        session.open_file(path("A"), a);
        session.open_file(path("B"), b);
        session.write_to(a, "k", "old");
        session.write_to(b, "k", "old");
        session.write_to(b, "gone", "here");
    }
    std::string seen() {
        Session session;
        VAR a, b;
        session.open_file(path("A"), a);
        session.open_file(path("B"), b);
        return session.read_from(a, "k") + session.read_from(b, "k") + session.read_from(b, "gone");
    }

    // The journal replayed on an empty store, each process's transactions as a whole. Faults are reported.
    Records replayed() {
        Records store;
        aborts_of_nothing = 0;
        std::map<std::uint32_t, std::vector<Walked>> open;
        for (const Walked &record : records()) {
            const bool is_in = open.contains(record.pid);
            const auto type = static_cast<journal::RecordType>(record.type);
            switch (type) {
                case journal::RecordType::TranStart:
                    EXPECT_FALSE(is_in) << "a start within a transaction";
                    open[record.pid];
                    break;
                case journal::RecordType::TranEnd:
                    EXPECT_TRUE(is_in) << "an end of no transaction";
                    for (const Walked &update : open[record.pid]) apply(store, update);
                    open.erase(record.pid);
                    break;
                case journal::RecordType::TranAbort:
                    aborts_of_nothing += is_in ? 0 : 1;
                    open.erase(record.pid);
                    break;
                default:
                    EXPECT_EQ((record.flags & journal::InTransaction) != 0, is_in);
                    if (is_in)
                        open[record.pid].push_back(record);
                    else
                        apply(store, record);
            }
        }
        EXPECT_TRUE(open.empty()) << "a transaction without an end";
        return store;
    }
    static void apply(Records &store, const Walked &record) {
        const std::string &file = record.strings[0];
        const std::string name = file.substr(file.rfind('/') + 1) + " " + record.strings[1];
        if (record.type == static_cast<int>(journal::RecordType::Write)) store[name] = record.payload.substr(12);
        if (record.type == static_cast<int>(journal::RecordType::Delete)) store.erase(name);
    }

    int aborts_of_nothing = 0;
};

TEST_F(TransactionRecords, TheUpdatesStandBetweenStartAndEndWithTheFlagOfATransaction) {
    VAR a = opened("A"), b = opened("B");
    write(a, "alone", "1");
    ASSERT_TRUE(begin("first remark"));
    write(a, "k", "1");
    write(b, "k", "2");
    write(a, "k", "3");
    EXPECT_EQ(summary(), (Lines{"WRITE A alone"})) << "nothing before the commit";
    ASSERT_TRUE(commit("second remark"));
    EXPECT_EQ(summary(),
              (Lines{"WRITE A alone", "TRANSTART first remark", "WRITE A k", "WRITE B k", "TRANSEND second remark"}));
    const auto found = records();
    EXPECT_EQ(found[0].flags & journal::InTransaction, 0);
    EXPECT_EQ(found[2].flags & journal::InTransaction, 1);
    EXPECT_EQ(found[3].flags & journal::InTransaction, 1);
    EXPECT_EQ(found[2].payload.substr(12), "3") << "the last update of a record counts";
}

TEST_F(TransactionRecords, AnAbortLeavesNothing) {
    VAR a = opened("A");
    ASSERT_TRUE(begin());
    write(a, "k", "1");
    ASSERT_EQ(velda_transaction_abort(dp, nullptr), 1);
    EXPECT_EQ(summary(), Lines{});
}

TEST_F(TransactionRecords, ATransactionOfOneFileIsBetweenStartAndEndToo) {
    VAR a = opened("A");
    ASSERT_TRUE(begin());
    write(a, "k", "1");
    ASSERT_TRUE(commit());
    EXPECT_EQ(summary(), (Lines{"TRANSTART", "WRITE A k", "TRANSEND"}));
}

TEST_F(TransactionRecords, OneOfFilesThatStayOutLeavesNothing) {
    VAR out = opened("OUT"), a = opened("A");
    ASSERT_TRUE(begin());
    write(out, "k", "1");
    ASSERT_TRUE(commit());
    EXPECT_EQ(summary(), Lines{});
    ASSERT_TRUE(begin());
    write(out, "k", "2");
    write(a, "k", "2");
    ASSERT_TRUE(commit());
    EXPECT_EQ(summary(), (Lines{"TRANSTART", "WRITE A k", "TRANSEND"}));
}

TEST_F(TransactionRecords, ADeathAtAnyStepLeavesAJournalThatReplaysToWhatTheFilesHold) {
    int kills = 0;
    for (int step = 1;; ++step) {
        put_back();
        const int outcome = in_child([&] { return run_transaction(step); });
        const std::string found = seen();
        ASSERT_TRUE(found == "xx(none)" || found == "oldoldhere") << "step " << step << ": " << found;
        Records store = replayed();
        EXPECT_EQ(store["A k"] + store["B k"] + (store.contains("B gone") ? "here" : "(none)"), found)
            << "step " << step;
        if (outcome == 0) break;
        ASSERT_EQ(outcome, 128 + SIGKILL);
        ++kills;
    }
    EXPECT_GT(kills, 10);
    EXPECT_LT(aborts_of_nothing, kills / 2) << "only where the death came just before the start, or just after the end";
}

TEST_F(TransactionRecords, TheAbortOfADeadProcessBearsItsNumber) {
    bool was_seen = false;
    for (int step = 1; !was_seen; ++step) {
        reset(1, config->sets[0].timeFirst + 1);
        put_back();
        if (in_child([&] { return run_transaction(step); }) == 0) break;
        seen();
        std::uint32_t begun_by = 0;
        for (const Walked &record : records()) {
            const auto type = static_cast<journal::RecordType>(record.type);
            if (type == journal::RecordType::TranStart && begun_by == 0) begun_by = record.pid;
            if (type == journal::RecordType::TranAbort && begun_by != 0) {
                EXPECT_EQ(record.pid, begun_by);
                EXPECT_NE(record.pid, static_cast<std::uint32_t>(getpid()));
                was_seen = true;
            }
        }
    }
    EXPECT_TRUE(was_seen);
}

TEST_F(TransactionRecords, WhatAReplayWritesStaysOutAlsoWhenItDies) {
    config->status = VELDA_LOGGER_INACTIVE;
    for (int step = 1;; ++step) {
        config->status = VELDA_LOGGER_INACTIVE;
        put_back();
        config->status = VELDA_LOGGER_ACTIVE;
        const int outcome = in_child([&] { return run_transaction(step, true); });
        const std::string found = seen();
        EXPECT_TRUE(found == "xx(none)" || found == "oldoldhere") << found;
        EXPECT_EQ(summary(), Lines{}) << "step " << step;
        if (outcome == 0) break;
    }
}

TEST_F(TransactionRecords, WhileTheJournalIsSuspendedNobodyWaitsToFinishWhatADeadSessionLeft) {
    bool was_left = false;
    for (int step = 1;; ++step) {
        config->status = VELDA_LOGGER_ACTIVE;
        put_back();
        if (in_child([&] { return run_transaction(step); }) == 0) break;
        config->status = VELDA_LOGGER_SUSPENDED;
        const auto before = std::chrono::steady_clock::now();
        const std::string meanwhile = seen();
        EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
        config->status = VELDA_LOGGER_ACTIVE;
        usleep(250'000);
        const std::string found = seen();
        EXPECT_TRUE(found == "xx(none)" || found == "oldoldhere") << "step " << step << ": " << found;
        if (meanwhile != found) was_left = true;
    }
    EXPECT_TRUE(was_left);
}

}  // namespace velda::test
