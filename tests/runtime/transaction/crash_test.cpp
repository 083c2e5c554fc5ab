// Sessions that die in the middle of a commit, and those that finish it.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "runtime/transaction/steps.h"
#include "tests/runtime/transaction/session_fixture.h"
#include "tests/support/seed.h"

namespace velda::test {

namespace {

// Runs `body` in a forked child, which ends with its result.
pid_t spawn(const std::function<int()> &body) {
    const pid_t child = fork();
    if (child == 0) _exit(body());
    return child;
}

// How a child ended: its exit code, or minus the number of the signal that killed it.
int outcome_of(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::vector<std::string> names_in(const std::string &directory) {
    std::vector<std::string> names;
    std::error_code failed;
    for (const auto &entry : std::filesystem::directory_iterator(directory, failed))
        names.push_back(entry.path().filename());
    return names;
}

// What one session sees of the records of one transaction, as one text.
constexpr const char *Before = "A.k1=old A.k2=old A.new=(none) B.k=old D.k=old^line D.gone=here ";
constexpr const char *After = "A.k1=x A.k2=(none) A.new=x B.k=x D.k=x^y D.gone=(none) ";

}  // namespace

class CrashTest : public TransactionTest {
  protected:
    CrashTest() {
        make("L DURABILITY=LAZY");
        put_back();
    }

    // The records as they are before the transaction; the parent's own session writes them.
    void put_back() {
        VAR b, d;
        one.open_file(path("B"), b);
        one.open_file(path("D"), d);
        one.write("k1", "old");
        one.write("k2", "old");
        one.remove("new");
        one.write_to(b, "k", "old");
        one.write_to(d, "k", "old^line");
        one.write_to(d, "gone", "here");
    }

    // One session's transaction over three files.
    int run_transaction(int die_at_step) const {
        Session session;
        VAR b, d;
        session.open_file(path("A"), session.file);
        session.open_file(path("B"), b);
        session.open_file(path("D"), d);
        if (!session.begin()) return 10;
        session.write("k1", "x");
        session.remove("k2");
        session.write("new", "x");
        session.write_to(b, "k", "x");
        session.write_to(d, "k", "x^y");
        session.remove_from(d, "gone");
        transaction::steps_to_live = die_at_step;
        const bool done = session.commit();
        transaction::steps_to_live = 0;
        return done ? 0 : 11;
    }

    std::string seen(Session &session) const {
        VAR a, b, d;
        session.open_file(path("A"), a);
        session.open_file(path("B"), b);
        session.open_file(path("D"), d);
        return "A.k1=" + session.read_from(a, "k1") + " A.k2=" + session.read_from(a, "k2") +
               " A.new=" + session.read_from(a, "new") + " B.k=" + session.read_from(b, "k") +
               " D.k=" + session.read_from(d, "k") + " D.gone=" + session.read_from(d, "gone") + " ";
    }
    std::vector<std::string> redo_records() const { return names_in(system_ / "transactions"); }
};

TEST_F(CrashTest, ADeathAtAnyStepOfACommitLeavesAllOrNothing) {
    bool seen_before = false, seen_after = false;
    int step = 1;
    for (;; ++step) {
        put_back();
        const int outcome = outcome_of(spawn([&] { return run_transaction(step); }));
        if (outcome == 0) break;
        ASSERT_EQ(outcome, -SIGKILL) << "step " << step;
        const std::string found = seen(two);
        ASSERT_TRUE(found == Before || found == After) << "step " << step << ": " << found;
        (found == Before ? seen_before : seen_after) = true;
        EXPECT_FALSE(seen_after && found == Before) << "the commit point is one instant: step " << step;
        EXPECT_TRUE(redo_records().empty()) << "step " << step;
    }
    EXPECT_EQ(seen(two), After);
    EXPECT_TRUE(seen_before && seen_after);
    EXPECT_GT(step, 10);
}

TEST_F(CrashTest, AFinisherMayDieAtAnyStepToo) {
    // A step at which the commit is made, and three files are to be written.
    int kills = 0;
    for (int die_at = 1;; ++die_at) {
        put_back();
        const int outcome = outcome_of(spawn([&] { return run_transaction(die_at); }));
        if (outcome == 0) break;
        for (int step = 1; step < 100; ++step) {
            const int finishing = outcome_of(spawn([&] {
                transaction::steps_to_live = step;
                Session finisher;
                const std::string found = seen(finisher);
                return found == Before ? 1 : found == After ? 2 : 3;
            }));
            if (finishing != -SIGKILL) {
                ASSERT_TRUE(finishing == 1 || finishing == 2) << die_at << " " << step << " " << finishing;
                break;
            }
            ++kills;
        }
        EXPECT_TRUE(redo_records().empty());
    }
    EXPECT_GE(kills, 20);
}

TEST_F(CrashTest, TheDeadSessionsLockIsGivenAwayOnlyAfterItsUpdatesAreMade) {
    for (int step = 1;; ++step) {
        put_back();
        if (outcome_of(spawn([&] { return run_transaction(step); })) == 0) break;
        // Only the lock of another record of the transaction is asked for.
        EXPECT_EQ(two.read_locked("other"), 0);
        two.release("other");
        const int result = two.read_locked("new");
        ASSERT_TRUE(result == 0 || result == 1);
        const std::string found = seen(two);
        EXPECT_EQ(found, result == 1 ? After : Before) << "step " << step;
        two.release("new");
    }
}

TEST_F(CrashTest, WhatTheLastProcessOfASystemLeftIsFinishedByTheNextOne) {
    bool seen_after = false;
    for (int step = 1;; ++step) {
        put_back();
        const ScratchDirectory system;
        // No process but the children uses this system, so its lock table ends with each of them.
        const auto in_system = [&](const std::function<int()> &body) {
            return outcome_of(spawn([&] {
                setenv("VELDAGLOBALDIR", system.path().c_str(), 1);
                return body();
            }));
        };
        if (in_system([&] { return run_transaction(step); }) == 0) break;
        const int found = in_system([&] {
            Session next;
            const std::string text = seen(next);
            return text == Before ? 1 : text == After ? 2 : 3;
        });
        ASSERT_TRUE(found == 1 || found == 2) << "step " << step << ": " << found;
        if (found == 2) seen_after = true;
        EXPECT_TRUE(names_in(system / "transactions").empty()) << "step " << step;
    }
    EXPECT_TRUE(seen_after);
}

}  // namespace velda::test
