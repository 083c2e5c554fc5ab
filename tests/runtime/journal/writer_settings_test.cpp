// What the settings of the configuration do to the records: extended and enciphered ones, checkpoints, syncs, warnings.
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <thread>

#include "runtime/crypt/crypt.h"
#include "runtime/journal/configuration.h"
#include "runtime/journal/injection.h"
#include "runtime/journal/sync.h"
#include "runtime/journal/writer_state.h"
#include "runtime/process/context.h"
#include "runtime/store/boot_id.h"
#include "runtime/terminal/terminal.h"
#include "tests/runtime/journal/writer_fixture.h"

using namespace velda::test;
using velda::journal::load_word;

namespace {

using velda::journal::injection;

class WriterSettings : public WriterTest {
  protected:
    using Lines = std::vector<std::string>;

    void SetUp() override {
        WriterTest::SetUp();
        make_set(1, 1);
        make_file("F");
        file = opened("F");
        activate();
    }
    // Entries of the administration log that hold a text.
    int logged(const std::string &text) const {
        const std::string log = content(log_path());
        int count = 0;
        for (std::size_t at = log.find(text); at != log.npos; at = log.find(text, at + 1)) ++count;
        return count;
    }

    VAR file;
};

}  // namespace

TEST_F(WriterSettings, AnExtendedRecordTellsOfSessionAndProgram) {
    config->extendedRecords = 1;
    setenv("VELDAACCOUNT", "SALES", 1);
    velda_logger_set_source(dp, "ORDER.BAS", "17");
    std::function<void()> body = [this] { write(file, "K", "a"); };
    velda_run(
        dp, "ENTER ORDER 7", [](DP *, void *argument) { (*static_cast<std::function<void()> *>(argument))(); }, &body);
    unsetenv("VELDAACCOUNT");
    VAR user, terminal;
    VLibESYSTEM_BBI(dp, &user, 1015);
    VELDAGetTTYName(dp, &terminal);
    EXPECT_EQ(records()[0].strings,
              (Lines{path("F"), "K", "ENTER", user.str(), terminal.str(), "SALES", "ORDER.BAS", "17"}));
}

TEST_F(WriterSettings, AMarkInATextOfTheSessionDoesNotEndItsField) {
    config->extendedRecords = 1;
    velda_logger_set_source(dp,
                            "a\xFE"
                            "b\xFF",
                            nullptr);
    write(file, "K", "a");
    EXPECT_EQ(records()[0].strings[6], "a.b.");
    EXPECT_EQ(records()[0].strings.size(), 8u);
}

TEST_F(WriterSettings, AnEncipheredWriteCarriesItsMarkerAndDataUnderTheRecordKey) {
    config->encryptedRecords = 1;
    write(file, "K", "secret^text");
    remove(file, "K");
    const auto found = records();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].marker,
              "V\xFF"
              "E\xFFN\xFF"
              "C\xFF");
    EXPECT_EQ(found[1].marker,
              "V\xFFR\xFF"
              "E\xFF"
              "C\xFF");
    EXPECT_EQ(found[0].payload.find("secret"), std::string::npos);
    EXPECT_EQ(number(found[0].payload, 8, 4), found[0].payload.size() - 12);
    VAR plain(found[0].payload.substr(12));
    const VAR key(velda_builtin_key(dp, VELDA_KEY_JOURNAL_RECORD));
    VLibEDECRYPT_BBBBI(dp, &plain, &plain, &key, 3);
    EXPECT_EQ(shown(plain.view()), "secret^text");
}

// --- checkpoints ----------------------------------------------------------------------------------------------------

TEST_F(WriterSettings, ACheckpointComesWhenTheMinutesAreOver) {
    config->checkpointMinutes = 2;
    write(file, "K", "a");
    EXPECT_EQ(config->lastCheckpoint, 0) << "the record of this test says 0";
    config->lastCheckpoint = static_cast<std::int32_t>(std::time(nullptr) - 119);
    write(file, "K", "b");
    config->lastCheckpoint = static_cast<std::int32_t>(std::time(nullptr) - 120);
    const std::int64_t before = config->lastCheckpoint;
    write(file, "K", "c");
    write(file, "K", "d");
    EXPECT_EQ(summary(), (Lines{"WRITE F K", "WRITE F K", "CHECKPOINT", "WRITE F K", "WRITE F K"}));
    const Walked checkpoint = records()[2];
    EXPECT_EQ(config->lastCheckpoint, checkpoint.time);
    EXPECT_EQ(number(checkpoint.payload, 0, 8), 2u);
    const std::string array = checkpoint.payload.substr(8);
    ASSERT_EQ(array.size(), 10 + 1 + 8 + 1 + 8u);
    EXPECT_EQ(array.substr(0, 11), "CHECKPOINT\xFE");
    // Bytes that would be marks are taken down.
    const auto near = [](std::uint64_t told, std::int64_t time) {
        return told <= static_cast<std::uint64_t>(time) && time - static_cast<std::int64_t>(told) < 70000;
    };
    EXPECT_TRUE(near(number(array, 11, 8), checkpoint.time));
    EXPECT_TRUE(near(number(array, 20, 8), before));
    for (std::size_t at = 11; at < 19; ++at) EXPECT_LT(static_cast<unsigned char>(array[at]), 0xFB);
}

TEST_F(WriterSettings, NoCheckpointStandsInsideATransaction) {
    config->checkpointMinutes = 1;
    ASSERT_EQ(velda_logger_transaction_start(dp, nullptr, 0), 0);
    config->lastCheckpoint = static_cast<std::int32_t>(std::time(nullptr) - 600);
    write(file, "K", "a");
    ASSERT_EQ(velda_logger_transaction_end(dp, nullptr), 0);
    write(file, "K", "b");
    EXPECT_EQ(summary(), (Lines{"TRANSTART", "WRITE F K", "TRANSEND", "CHECKPOINT", "WRITE F K"}));
}

// --- syncs ----------------------------------------------------------------------------------------------------------

TEST_F(WriterSettings, TheEndOfATransactionIsSyncedWhereThatIsAskedFor) {
    config->syncSeconds = 1000000;
    for (const int asked : {0, 1}) {
        config->syncTransactions = static_cast<std::uint32_t>(asked);
        const std::uint32_t before = config->statistics[3];
        ASSERT_EQ(velda_logger_transaction_start(dp, nullptr, 0), 0);
        write(file, "K", "a");
        ASSERT_EQ(velda_logger_transaction_end(dp, nullptr), 0);
        EXPECT_EQ(config->statistics[3], before + static_cast<std::uint32_t>(asked));
    }
    EXPECT_EQ(config->statistics[4], 6u) << "records that the sync covered";
    EXPECT_NEAR(static_cast<double>(velda_logger_last_sync(dp)), static_cast<double>(std::time(nullptr)), 2);
}

TEST_F(WriterSettings, TheJournalIsSyncedWithinTheSeconds) {
    config->syncSeconds = 1;
    write(file, "K", "a");
    for (int wait = 0; wait < 300 && load_word(config->statistics[2]) == 0; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_GE(load_word(config->statistics[2]), 1u);
    EXPECT_GE(load_word(config->statistics[4]), 1u);
}

TEST_F(WriterSettings, OneSyncServesAllWhoWait) {
    config->syncSeconds = 1000000;
    config->syncTransactions = 1;
    constexpr int Sessions = 8, Turns = 20;
    std::vector<std::thread> threads;
    for (int n = 0; n < Sessions; ++n)
        threads.emplace_back([] {
            for (int turn = 0; turn < Turns; ++turn) {
                EXPECT_EQ(velda_logger_transaction_start(velda_getdp(), nullptr, 0), 0);
                EXPECT_EQ(velda_logger_transaction_end(velda_getdp(), nullptr), 0);
            }
        });
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(config->statistics[4], 2u * Sessions * Turns) << "every record is covered";
    EXPECT_LE(config->statistics[3], static_cast<std::uint32_t>(Sessions * Turns));
}

class TransactionSyncs : public WriterSettings {
  protected:
    void SetUp() override {
        WriterSettings::SetUp();
        make_set(2, 3);
        config->currentSet = 2;
        config->syncSeconds = ~0U;
        config->syncTransactions = 1;
        make_transaction("a");  // the first sync of a use is of all files
    }
    void make_transaction(const std::string &record) {
        ASSERT_EQ(velda_logger_transaction_start(dp, nullptr, 0), 0);
        write(file, "K", record);
        ASSERT_EQ(velda_logger_transaction_end(dp, nullptr), 0);
    }
    // How many files are synced in the meantime, where no other step can fail.
    template <class Work>
    int synced_files(Work &&work) {
        constexpr int Many = 1000;
        injection = {Many, EIO, -1, gettid()};
        work();
        const int steps = Many - injection.steps_to_go;
        injection = {};
        return steps;
    }
    velda::journal::Configuration &configuration() {
        return *static_cast<DP *>(dp)->state<velda::journal::JournalSession>().configuration;
    }
    velda::journal::WriterState &state() { return velda::journal::writer_state(*config); }
};

TEST_F(TransactionSyncs, OnlyTheFilesWithRecordsSinceTheLastSyncAreSynced) {
    write(file, "K", std::string(3 * 4096, 'x'));  // brings a page of each file in
    make_transaction("a");
    EXPECT_EQ(synced_files([&] { make_transaction("b"); }), 1);
    EXPECT_EQ(synced_files([&] { make_transaction("c"); }), 1);
    write(file, "K", std::string(4096, 'x'));
    EXPECT_EQ(synced_files([&] { make_transaction("d"); }), 2);
}

TEST_F(TransactionSyncs, ASyncByTimeIsOfAllFilesForTheFirstBlockTellsHowFarTheSetIs) {
    write(file, "K", "a");
    EXPECT_EQ(
        synced_files([&] { EXPECT_TRUE(sync_journal(dp, configuration(), velda::journal::SyncReason::Time).ok()); }),
        3);
    EXPECT_EQ(
        synced_files([&] { EXPECT_TRUE(sync_journal(dp, configuration(), velda::journal::SyncReason::Time).ok()); }), 0)
        << "nothing was written since";
}

TEST_F(TransactionSyncs, WhenAnEndReturnsItsRecordsAreOnDisk) {
    for (const std::size_t size : {1, 100, 5000, 50000}) {
        make_transaction(std::string(size, 'x'));
        EXPECT_EQ(state().synced.stream, state().written[state().valid].stream) << size;
    }
}

TEST_F(TransactionSyncs, AnEndWhoseSyncFailsSaysSo) {
    ASSERT_EQ(velda_logger_transaction_start(dp, nullptr, 0), 0);
    write(file, "K", "a");
    injection = {1, EIO, -1, gettid()};
    EXPECT_EQ(velda_logger_transaction_end(dp, nullptr), EIO);
    injection = {};
    EXPECT_LT(state().synced.stream, state().written[state().valid].stream);
    make_transaction("b");
    EXPECT_EQ(state().synced.stream, state().written[state().valid].stream);
}

TEST_F(TransactionSyncs, AllWhoseEndsWereWrittenBeforeASyncBeganNeedNoOther) {
    constexpr int Sessions = 8;
    const std::uint32_t syncs = config->statistics[3];
    const std::int64_t records = config->sets[1].recordCount;
    ASSERT_EQ(pthread_mutex_lock(&state().sync_lock), 0);  // a sync is under way
    std::vector<std::thread> threads;
    for (int n = 0; n < Sessions; ++n)
        threads.emplace_back([] {
            EXPECT_EQ(velda_logger_transaction_start(velda_getdp(), nullptr, 0), 0);
            EXPECT_EQ(velda_logger_transaction_end(velda_getdp(), nullptr), 0);
        });
    while (load_word(config->sets[1].recordCount) < records + 2 * Sessions)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(load_word(config->statistics[3]), syncs);
    ASSERT_EQ(pthread_mutex_unlock(&state().sync_lock), 0);
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(config->statistics[3], syncs + 1);
    EXPECT_EQ(state().synced.stream, state().written[state().valid].stream);
}

TEST_F(TransactionSyncs, AChangeOfSetWaitsForTheSyncOfATransaction) {
    ASSERT_EQ(pthread_mutex_lock(&state().sync_lock), 0);
    const std::int64_t records = config->sets[1].recordCount;
    std::thread session([] {
        EXPECT_EQ(velda_logger_transaction_start(velda_getdp(), nullptr, 0), 0);
        EXPECT_EQ(velda_logger_transaction_end(velda_getdp(), nullptr), 0);
    });
    while (load_word(config->sets[1].recordCount) < records + 2)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::atomic<bool> are_held = false;
    std::thread administrator([&] {
        DP *const other = velda_getdp();
        VediLoggerMisc(other, 25);
        velda_logger_hold_writers(other);
        are_held = true;
        EXPECT_EQ(state().synced.stream, state().written[state().valid].stream);
        velda_logger_release_writers(other);
        VediLoggerMisc(other, 26);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(are_held);
    ASSERT_EQ(pthread_mutex_unlock(&state().sync_lock), 0);
    session.join();
    administrator.join();
}

// --- warnings of space ----------------------------------------------------------------------------------------------

TEST_F(WriterSettings, SpaceIsWarnedOfAtTheThresholds) {
    make_set(2, 1, 40 * 4096);
    config->currentSet = 2;
    config->warnInitialPercent = 50;
    config->warnStepPercent = 20;
    config->warnStepSeconds = 1000;
    VAR code;
    int written = 0;
    while (written < 1000 && write(file, "K", std::string(500, 'x'), &code) == 1) ++written;
    EXPECT_EQ(code.to_integer(), ENOSPC);
    EXPECT_EQ(logged("severity 257: Journal Log Files now at "), 3);
    EXPECT_EQ(logged("now at 50 % capacity"), 1);
    EXPECT_EQ(logged("now at 70 % capacity"), 1);
    EXPECT_EQ(logged("now at 90 % capacity"), 1);
}

TEST_F(WriterSettings, SpaceIsWarnedOfAgainAfterTheSeconds) {
    make_set(2, 1, 40 * 4096);
    config->currentSet = 2;
    config->warnInitialPercent = 1;
    config->warnStepPercent = 100;
    config->warnStepSeconds = 1;
    write(file, "K", "a");
    EXPECT_EQ(logged("severity 257"), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    write(file, "K", "b");
    EXPECT_EQ(logged("severity 257"), 2);
}
