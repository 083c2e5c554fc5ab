// Writers that are killed at any instant: every update whose statement returned is there and whole.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>

#include "tests/runtime/file/fixture.h"
#include "tests/support/seed.h"

namespace velda::test {
namespace {

class Crash : public FileTest, public testing::WithParamInterface<const char *> {
  protected:
    static constexpr int Keys = 8;
    static constexpr int Kills = 50;

    // What the writers acknowledge: it outlives them.
    struct Ledger {
        std::array<std::atomic<int>, Keys> acknowledged;  // last version of each key whose WRITE returned
        std::atomic<int> increments;
    };

    Crash() {
        void *const shared = mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ledger = new (shared) Ledger{};
    }
    ~Crash() override { munmap(ledger, sizeof(Ledger)); }

    void SetUp() override {
        ASSERT_EQ(create("DATA " + path("F") + " " + GetParam()), "");
        random = seeded_random();
    }

    // A session in a process of its own, which works until it is killed.
    pid_t start(const std::function<void()> &work) const {
        const pid_t child = fork();
        if (child != 0) return child;
        work();
        _exit(dp->last_error);
    }
    void kill_after_a_while(pid_t child) {
        usleep(static_cast<useconds_t>(1000 + random() % 12000));
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "a writer gave up: status " << status;
    }

    // Version `version` of a key: its length varies over pages and overflow pages.
    static std::string content(int version) {
        return std::to_string(version) + "^" +
               std::string(static_cast<std::size_t>(version * 37 % 9000), static_cast<char>('a' + version % 26));
    }

    Ledger *ledger;
    std::mt19937_64 random;
};

INSTANTIATE_TEST_SUITE_P(
    Files, Crash, testing::Values("TYPE=HL", "TYPE=HL DURABILITY=LAZY", "TYPE=UD"), [](const auto &files) {
        return std::string(files.index == 0 ? "HashedSync" : files.index == 1 ? "HashedLazy" : "Directory");
    });

TEST_P(Crash, EveryAcknowledgedWriteIsThereAndWhole) {
    for (int round = 0; round < Kills && !HasFailure(); ++round) {
        kill_after_a_while(start([&] {
            if (open(path("F"), file) != 1) return;
            for (int turn = 0;; ++turn) {
                const int key = turn % Keys, version = ledger->acknowledged[key] + 1;
                if (write(key, content(version)) == 1) ledger->acknowledged[key] = version;
            }
        }));
        ASSERT_EQ(open(path("F"), file), 1);
        for (int key = 0; key < Keys; ++key) {
            const Read found = read(key);
            const int acknowledged = ledger->acknowledged[key];
            if (acknowledged == 0 && found.result == 0) continue;
            const int version = std::atoi(found.record.c_str());
            EXPECT_GE(version, acknowledged) << "key " << key << " after kill " << round;
            EXPECT_LE(version, acknowledged + 1);
            EXPECT_EQ(found.record, content(version)) << "key " << key << " after kill " << round;
            ledger->acknowledged[key] = version;
        }
        file = "";
    }
    EXPECT_GT(ledger->acknowledged[0], 0);
}

TEST_P(Crash, IncrementsUnderTheLockAreNeverLostAndTheLockIsNeverStuck) {
    ASSERT_EQ(open(path("F"), file), 1);
    write("counter", "0");
    file = "";
    const auto count = [&] {
        if (open(path("F"), file) != 1) return;
        VAR counter;
        const VAR key("counter");
        while (VLibFNEWREAD_IIBBBIB(dp, VELDA_READ_LOCK, &file, &counter, &key, 0, nullptr) == 1) {
            counter += 1;
            if (VLibFNEWWRITE_IIBBBIB(dp, 0, &file, &counter, &key, 0, nullptr) != 1) return;
            ++ledger->increments;
        }
    };
    std::array<pid_t, 3> sessions{};
    for (pid_t &session : sessions) session = start(count);
    constexpr int Rounds = 15;
    for (int round = 0; round < Rounds; ++round) {
        pid_t &victim = sessions[random() % sessions.size()];
        kill_after_a_while(victim);
        victim = start(count);
    }
    for (const pid_t session : sessions) kill_after_a_while(session);
    ASSERT_EQ(open(path("F"), file), 1);
    const int counter = std::atoi(read("counter", VELDA_READ_LOCK).record.c_str());
    EXPECT_GE(counter, ledger->increments);
    EXPECT_LE(counter, ledger->increments + Rounds + static_cast<int>(sessions.size()));
    EXPECT_GT(counter, 0);
}

}  // namespace
}  // namespace velda::test
