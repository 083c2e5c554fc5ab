// Writers that are killed at any instant, and at every step of an append: the journal holds every update whose statement
// returned, and gives the files' contents when it is replayed.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <map>
#include <set>

#include "runtime/journal/configuration.h"
#include "runtime/journal/injection.h"
#include "runtime/process/context.h"
#include "tests/runtime/journal/writer_fixture.h"
#include "tests/support/seed.h"

using namespace velda::test;

namespace {

using velda::journal::injection;

class WriterCrash : public WriterTest {
  protected:
    using Content = std::map<std::string, std::string>;

    void SetUp() override {
        WriterTest::SetUp();
        make_set(1, 3);
        random = seeded_random();
    }

    // What the journal makes of an empty file.
    Content replayed(const std::string &name, const std::vector<Walked> &journal) const {
        Content content;
        for (const Walked &record : journal) {
            if (record.strings[0] != path(name)) continue;
            if (record.type == 2) content[record.strings[1]] = record.payload.substr(12);
            if (record.type == 3) content.erase(record.strings[1]);
            if (record.type == 4) content.clear();
        }
        return content;
    }
    Content content_of(const std::string &name) {
        Content content;
        VAR file = opened(name), list, key, record;
        EXPECT_EQ(VLibFSELECT_IBBB(dp, &file, &list, nullptr), 1);
        while (VLibFREADNEXT_IBBBBB(dp, &key, nullptr, nullptr, &list, nullptr) == 1)
            if (VLibFNEWREAD_IIBBBIB(dp, 0, &file, &record, &key, 0, nullptr) == 1) content[key.str()] = record.str();
        return content;
    }
    void expect_equal(const std::string &name, const std::vector<Walked> &journal) {
        const Content file = content_of(name), replay = replayed(name, journal);
        EXPECT_EQ(file.size(), replay.size()) << name;
        for (const auto &[key, record] : file) {
            const auto found = replay.find(key);
            ASSERT_NE(found, replay.end()) << name << " " << key;
            EXPECT_EQ(found->second.substr(0, 40), record.substr(0, 40)) << name << " " << key;
            EXPECT_TRUE(found->second == record) << name << " " << key;
        }
    }

    std::mt19937_64 random;
};

constexpr int Writers = 3;
constexpr int Keys = 4;

// What the writers acknowledge: it outlives them.
struct Ledger {
    std::array<std::array<std::atomic<int>, Keys>, Writers> acknowledged;
    static Ledger *make() {
        return new (mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Ledger{};
    }
};

}  // namespace

TEST_F(WriterCrash, AfterTwoHundredKillsTheJournalHoldsWhatReturnedAndGivesTheFiles) {
    constexpr int Kills = 210;
    make_file("LAZY", "DURABILITY=LAZY");
    make_file("SYNC", "DURABILITY=SYNC");
    make_file("CLEARED", "DURABILITY=LAZY");
    activate();
    config->syncSeconds = 1;
    Ledger *const ledger = Ledger::make();
    const auto work = [&](int writer, std::uint64_t seed) {
        std::mt19937_64 choice(seed);
        VAR lazy = opened("LAZY"), sync = opened("SYNC"), cleared = opened("CLEARED");
        for (;;) {
            const int key = static_cast<int>(choice() % Keys);
            const std::string name = "w" + std::to_string(writer) + "k" + std::to_string(key);
            std::atomic<int> &acknowledged = ledger->acknowledged[writer][key];
            const std::string content = std::to_string(acknowledged + 1) + " " +
                                        std::string(choice() % 20 == 0 ? choice() % 9000 : choice() % 200, 'x');
            if (write(key % 2 ? sync : lazy, name, content) != 1) _exit(1);
            ++acknowledged;
            write(lazy, "shared", name + content);
            if (choice() % 4 == 0) remove(lazy, "shared");
            write(cleared, choice() % 5, content);
            if (choice() % 16 == 0) VLibFNEWCLEARFILE_IIBB(dp, 0, &cleared, nullptr);
            usleep(static_cast<useconds_t>(choice() % 300));
        }
    };
    std::array<pid_t, Writers> writers{};
    const auto start = [&](int writer) {
        const std::uint64_t seed = random();
        writers[writer] = fork();
        if (writers[writer] == 0) work(writer, seed);
    };
    const auto stop = [&](int writer) {
        kill(writers[writer], SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(writers[writer], &status, 0), writers[writer]);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "a writer gave up: " << status;
    };
    for (int writer = 0; writer < Writers; ++writer) start(writer);
    for (int n = 0; n < Kills && !HasFailure(); ++n) {
        usleep(static_cast<useconds_t>(random() % 12000));
        const int victim = static_cast<int>(random() % Writers);
        stop(victim);
        start(victim);
    }
    for (int writer = 0; writer < Writers; ++writer) stop(writer);

    for (const char *name : {"LAZY", "SYNC", "CLEARED"}) opened(name);  // whoever opens next settles what was left
    const auto journal = records();
    std::map<std::string, int> newest;
    std::map<std::string, std::set<int>> versions;
    for (const Walked &record : journal)
        if (record.type == 2 && record.strings[1].starts_with("w"))
            versions[record.strings[1]].insert(std::atoi(record.payload.substr(12).c_str()));
    int total = 0;
    for (int writer = 0; writer < Writers; ++writer) {
        for (int key = 0; key < Keys; ++key) {
            const auto &seen = versions["w" + std::to_string(writer) + "k" + std::to_string(key)];
            for (int version = 1; version <= ledger->acknowledged[writer][key]; ++version, ++total)
                ASSERT_TRUE(seen.contains(version)) << writer << " " << key << " " << version;
        }
    }
    EXPECT_GT(total, 200);
    for (const char *name : {"LAZY", "SYNC", "CLEARED"}) expect_equal(name, journal);
    munmap(ledger, sizeof(Ledger));
}

// --- every step -----------------------------------------------------------------------------------------------------

class WriterSteps : public WriterCrash, public testing::WithParamInterface<const char *> {
  protected:
    // A fresh file and a fresh use of the set for each round.
    void begin_round(int n) {
        config->status = VELDA_LOGGER_INACTIVE;
        velda::journal::store_word(config->syncSeconds,
                                   ~0U);  // a sync by time would take the place of the one that is counted
        reset(1, velda_logger_next_time(dp));
        name = "F" + std::to_string(n);
        make_file(name, GetParam());
        activate();
        VAR file = opened(name);
        write(file, "K", "old");
        write(file, "gone", "old");
    }
    // A process that opens the set anew, appends over several blocks, and ends a transaction with a sync.
    int updates(int &acknowledged) {
        config->syncTransactions = 1;
        dp_state().configuration->stream->abandon();
        VAR file = opened(name), code;
        const auto made = [&](int result) {
            if (result == 1) ++acknowledged;
            return result;
        };
        made(write(file, "K", std::string(200000, 'n'), &code));
        made(remove(file, "gone", &code));
        if (velda_logger_transaction_start(dp, nullptr, 0) == 0) {
            made(write(file, "T", "t", &code));
            velda_logger_transaction_end(dp, nullptr);
        }
        made(write(file, "L", "l", &code));
        return VediLoggerMisc(dp, 3);
    }
    velda::journal::JournalSession &dp_state() {
        return static_cast<DP *>(dp)->state<velda::journal::JournalSession>();
    }
    void expect_whole(int n, int acknowledged) {
        VAR file = opened(name);
        EXPECT_EQ(write(file, "after", std::to_string(n)), 1) << "at step " << n;
        const auto journal = records();
        EXPECT_GE(static_cast<int>(journal.size()), acknowledged);
        expect_equal(name, journal);
    }

    std::string name;
};

INSTANTIATE_TEST_SUITE_P(Files, WriterSteps, testing::Values("DURABILITY=LAZY", "DURABILITY=SYNC"),
                         [](const auto &files) { return std::string(files.index == 0 ? "Lazy" : "Sync"); });

TEST_P(WriterSteps, AWriterThatDiesAtAnyStepLeavesAWholeJournal) {
    int *const acknowledged =
        static_cast<int *>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int n = 1;
    for (; n < 1000 && !HasFailure(); ++n) {
        begin_round(n);
        *acknowledged = 0;
        const int code = in_child([&] {
            injection = {n, 0, -1, gettid()};
            updates(*acknowledged);
            return 0;
        });
        if (code == 0) break;
        ASSERT_EQ(code, 128 + SIGKILL);
        expect_whole(n, *acknowledged);
    }
    EXPECT_GT(n, 30);
    munmap(acknowledged, 4096);
}

TEST_P(WriterSteps, AStepThatFailsStopsItsUpdateAndNothingElse) {
    int *const acknowledged =
        static_cast<int *>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int n = 1;
    std::set<int> steps;
    for (; n < 1000 && !HasFailure(); ++n) {
        begin_round(n);
        *acknowledged = 0;
        const int code = in_child([&] {
            injection = {n, EIO, -1, gettid()};
            updates(*acknowledged);
            return injection.happened + 1;
        });
        ASSERT_LT(code, 128) << "at step " << n;
        if (code == 0) break;
        steps.insert(code - 1);
        expect_whole(n, *acknowledged);
    }
    EXPECT_GT(n, 10);
    for (const auto step : {velda::journal::Step::Open, velda::journal::Step::Map, velda::journal::Step::Allocate,
                            velda::journal::Step::Clear, velda::journal::Step::Ready, velda::journal::Step::Sync})
        EXPECT_TRUE(steps.contains(static_cast<int>(step))) << static_cast<int>(step);
    munmap(acknowledged, 4096);
}

// --- directories ----------------------------------------------------------------------------------------------------

TEST_F(WriterCrash, TwoProcessesOnOneKeyOfADirectoryReachJournalAndFileInOneOrder) {
    make_file("D", "TYPE=UD DURABILITY=LAZY");
    activate();
    for (int round = 0; round < 5; ++round) {
        std::array<pid_t, 2> writers{};
        for (int writer = 0; writer < 2; ++writer) {
            writers[writer] = fork();
            if (writers[writer] != 0) continue;
            VAR file = opened("D");
            for (int n = 0; n < 100; ++n) write(file, "K", std::to_string(writer) + " " + std::to_string(n));
            _exit(0);
        }
        for (const pid_t writer : writers) {
            int status = 0;
            ASSERT_EQ(waitpid(writer, &status, 0), writer);
            ASSERT_EQ(status, 0);
        }
        expect_equal("D", records());
    }
    EXPECT_EQ(records().size(), 1000u);
}
