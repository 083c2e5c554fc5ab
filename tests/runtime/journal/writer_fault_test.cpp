// The writer on a disk that is full, gone or not to be written; after the machine stopped; under changes of set.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "runtime/journal/injection.h"
#include "runtime/journal/set_change.h"
#include "runtime/journal/writer_state.h"
#include "runtime/process/context.h"
#include "runtime/process/interrupt.h"
#include "runtime/process/output.h"
#include "runtime/store/boot_id.h"
#include "tests/runtime/journal/writer_fixture.h"
#include "tests/support/mounted_disk.h"

using namespace velda::test;

namespace {

class WriterFault : public WriterTest {
  protected:
    using Lines = std::vector<std::string>;

    void SetUp() override {
        WriterTest::SetUp();
        make_set(2, 1);
        make_set(1, 2);
        make_file("F");
        file = opened("F");
        activate();
    }
    // The message with which a write stops its command.
    std::string message_of_write(const std::string &record) {
        std::string output;
        {
            const velda::CaptureOutput capture(dp, output);
            std::function<void()> body = [&] { write(file, "K", record); };
            velda_run(
                dp, "TEST", [](DP *, void *argument) { (*static_cast<std::function<void()> *>(argument))(); }, &body);
        }
        while (output.ends_with('\n')) output.pop_back();
        return output;
    }
    std::string admin_log() const { return content(log_path()); }
    std::string written_key(int n) const { return "K" + std::to_string(n); }
    // Where the records of a set end in its stream of blocks.
    std::size_t stream_end(int set) const {
        const LogSetInfo &info = config->sets[set - 1];
        const std::size_t row = static_cast<std::size_t>(info.fileOffset) / 4096;
        return (row * files_of(info) + info.currentFile - 1) * 4096 + info.blockPosition;
    }
    // What the blocks of so many rows hold behind that.
    std::string bytes_behind_records(int set, std::size_t rows) const {
        const LogSetInfo &info = config->sets[set - 1];
        std::vector<std::string> files;
        for (std::size_t n = 0; n < files_of(info); ++n) files.push_back(content(info.files[n].path));
        std::string stream;
        for (std::size_t row = 0; row < rows; ++row)
            for (const std::string &bytes : files) stream += bytes.substr(row * 4096, 4096);
        return stream.substr(stream_end(set));
    }
    static std::size_t files_of(const LogSetInfo &info) {
        return static_cast<std::size_t>(std::count_if(std::begin(info.files), std::end(info.files),
                                                      [](const LogFileEntry &entry) { return entry.path[0] != 0; }));
    }
    // A session's wait for the journal must not be served while this runs.
    static void pause(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

    VAR file;
};

}  // namespace

// --- no room --------------------------------------------------------------------------------------------------------

TEST_F(WriterFault, AFullSetStopsTheUpdateBeforeTheFileIsChanged) {
    make_set(3, 2, 8 * 4096);
    config->currentSet = 3;
    VAR code;
    int written = 0;
    while (written < 1000 && write(file, written_key(written), std::string(300, 'x'), &code) == 1) ++written;
    EXPECT_GT(written, 100);
    EXPECT_LT(written, 1000);
    EXPECT_EQ(code.to_integer(), ENOSPC);
    EXPECT_EQ(read(file, written_key(written)), "(none)");
    EXPECT_EQ(records(3).size(), static_cast<std::size_t>(written));
    const std::string message = message_of_write(std::string(300, 'x'));
    EXPECT_EQ(message, "Cannot write record 'K' of file '" + path("F") + "': journal file '" + set_path(3, 0) +
                           "' is full: it may have 32768 bytes; switch to another set");
    EXPECT_NE(admin_log().find("severity 2: The journal cannot be written: journal file '" + set_path(3, 0)),
              std::string::npos);
    // It can still be closed, and the journal goes on in another set.
    EXPECT_EQ(VediLoggerMisc(dp, 3), 0);
    config->currentSet = 2;
    EXPECT_EQ(write(file, "K", "after"), 1);
    EXPECT_EQ(summary(2), Lines{"WRITE F K"});
}

TEST_F(WriterFault, ATransactionWithoutRoomForItsUpdatesDoesNotStart) {
    make_set(3, 1, 4 * 4096);
    config->currentSet = 3;
    EXPECT_EQ(velda_logger_transaction_start(dp, nullptr, 100000), ENOSPC);
    EXPECT_NE(std::string(velda_logger_error(dp)).find("is full"), std::string::npos);
    EXPECT_EQ(records(3).size(), 0u);
    ASSERT_EQ(velda_logger_transaction_start(dp, nullptr, 1000), 0);
    ASSERT_EQ(velda_logger_transaction_end(dp, nullptr), 0);
}

TEST_F(WriterFault, AFailureIsToldOnceAndAgainAfterASuccess) {
    make_set(3, 1, 2 * 4096);
    config->currentSet = 3;
    const auto told = [&] {
        int count = 0;
        const std::string log = admin_log();
        for (std::size_t at = log.find("severity 2:"); at != log.npos; at = log.find("severity 2:", at + 1)) ++count;
        return count;
    };
    VAR code;
    for (int n = 0; n < 5; ++n) EXPECT_EQ(write(file, "K", std::string(20000, 'x'), &code), 3);
    EXPECT_EQ(told(), 1);
    EXPECT_EQ(write(file, "K", "small"), 1);
    EXPECT_EQ(write(file, "K", std::string(20000, 'x'), &code), 3);
    EXPECT_EQ(told(), 2);
}

TEST_F(WriterFault, AFullDiskStopsTheUpdateBeforeTheFileIsChangedAndNothingIsLost) {
    const std::string disk = path("disk");
    constexpr int NoDisk = 77;
    const auto in_the_child = [&] {  // which has one thread, whatever this process has
        const MountedDisk mounted(disk, "256k");
        if (!mounted) return NoDisk;
        make_set(3, 0);
        std::ofstream(disk + "/log", std::ios::binary) << std::string(4096, 'x');
        std::strncpy(config->sets[2].files[0].path, (disk + "/log").c_str(), 191);
        config->sets[2].files[0].maxSize = -1;
        config->currentSet = 3;
        VAR code;
        int written = 0;
        while (written < 5000 && write(file, written_key(written), std::string(300, 'x'), &code) == 1) ++written;
        EXPECT_GT(written, 300);
        EXPECT_EQ(code.to_integer(), ENOSPC);
        EXPECT_EQ(read(file, written_key(written)), "(none)");
        EXPECT_EQ(records(3).size(), static_cast<std::size_t>(written));
        EXPECT_NE(admin_log().find("cannot extend journal file '" + disk + "/log': No space left on device"),
                  std::string::npos);
        return testing::Test::HasFailure() ? 1 : 0;
    };
    const int outcome = in_child([&] {
        const int code = in_the_child();
        fflush(nullptr);
        return code;
    });
    if (outcome == NoDisk) GTEST_SKIP() << "cannot mount a small disk";
    EXPECT_EQ(outcome, 0);
}

TEST_F(WriterFault, AProcessThatMayNotWriteLargeFilesIsToldSo) {
    EXPECT_EQ(in_child([&] {
                  const rlimit limit{4 << 20, 4 << 20};
                  signal(SIGXFSZ, SIG_IGN);
                  setrlimit(RLIMIT_FSIZE, &limit);
                  config->sets[0].files[1].path[0] = 0;
                  VAR code;
                  int written = 0;
                  while (written < 10000 && write(file, "K", std::string(3000, 'x'), &code) == 1) ++written;
                  fflush(nullptr);
                  return written > 100 && written < 10000 && code.to_integer() == EFBIG ? 0 : 1;
              }),
              0);
    EXPECT_EQ(write(file, "K", "by a process that may"), 1);
}

TEST_F(WriterFault, BehindTheRecordsAreZerosWhateverAnEarlierUseLeftThere) {
    make_set(3, 2, 64 * 4096);
    config->currentSet = 3;
    for (int n = 0; n < 300; ++n) write(file, "K", std::string(1000, 'x'));
    reset(3, velda_logger_next_time(dp));
    write(file, "K", "new");
    EXPECT_EQ(bytes_behind_records(3, 16), std::string(2 * 16 * 4096 - stream_end(3), '\0'));
}

TEST_F(WriterFault, ABlockThatIsBegunAgainHoldsNothingOfADeadWriter) {
    write(file, "K", "first");
    const auto is_left = [&] { return bytes_behind_records(1, 8).find(std::string(4000, 'x')) != std::string::npos; };
    for (int step = 1; !is_left(); ++step) {
        ASSERT_EQ(in_child([&] {
                      velda::journal::injection = {step, 0, -1, gettid()};
                      return write(file, "K", std::string(20000, 'x'));
                  }),
                  128 + SIGKILL);
    }
    for (int n = 0; n < 4; ++n) write(file, "K", std::string(1000, 'y'));
    const std::string behind = bytes_behind_records(1, 8);
    EXPECT_EQ(behind.substr(0, 4096 - stream_end(1) % 4096).find_first_not_of('\0'), std::string::npos);
}

// --- files that are not what they were ------------------------------------------------------------------------------

TEST_F(WriterFault, ASetFileThatIsRemovedStopsUpdatesAndTheMessageNamesIt) {
    write(file, "K", "old");
    std::filesystem::remove(set_path(1, 1));
    pause(30);
    EXPECT_EQ(message_of_write("new"), "Cannot write record 'K' of file '" + path("F") +
                                           "': cannot find journal file '" + set_path(1, 1) +
                                           "': No such file or directory");
    EXPECT_EQ(read(file, "K"), "old");
    EXPECT_NE(admin_log().find("cannot find journal file '" + set_path(1, 1)), std::string::npos);
    VAR code;
    EXPECT_EQ(write(file, "K", "new", &code), 3);
    EXPECT_EQ(code.to_integer(), EIO) << "not that of a missing record";
    // Another set, and it goes on.
    EXPECT_NE(VediLoggerMisc(dp, 3), 0);
    config->currentSet = 2;
    EXPECT_EQ(write(file, "K", "new"), 1);
}

TEST_F(WriterFault, ASetFileThatIsReplacedIsNotWrittenTo) {
    for (int n = 0; n < 100; ++n) write(file, "K", std::string(200, 'x'));
    std::filesystem::rename(set_path(1, 0), path("moved"));
    std::ofstream(set_path(1, 0)) << std::string(8192, 'z');
    pause(30);
    VAR code;
    EXPECT_EQ(write(file, "K", "new", &code), 3);
    std::filesystem::rename(path("moved"), set_path(1, 0));
    EXPECT_EQ(write(file, "K", "new"), 1) << "the file is back";
    EXPECT_EQ(records().size(), 101u);
}

TEST_F(WriterFault, ASetFileThatIsCutShortIsAnErrorAndNotADeath) {
    EXPECT_EQ(in_child([&] {
                  for (int n = 0; n < 100; ++n) write(file, "K", std::string(200, 'x'));
                  if (truncate(set_path(1, 0).c_str(), 0) != 0) return 2;
                  VAR code;
                  const int at_once = write(file, "K", std::string(9000, 'y'), &code);
                  pause(30);
                  const int later = write(file, "K", "z", &code);
                  return at_once == 3 && later == 3 && code.to_integer() == EIO ? 0 : 1;
              }),
              0);
}

TEST_F(WriterFault, ASetFileThatMayNotBeOpenedStopsUpdates) {
    if (geteuid() != 0) GTEST_SKIP() << "needs the superuser, to become someone else";
    std::filesystem::permissions(system_.path(), std::filesystem::perms(0777));
    for (int n = 0; n < 2; ++n) std::filesystem::permissions(set_path(1, n), std::filesystem::perms(0600));
    EXPECT_EQ(in_child([&] {
                  if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
                  VAR code;
                  const int result = write(file, "K", "a", &code);
                  return result == 3 && code.to_integer() == VELDA_ERROR_PERMISSION ? 0 : 1;
              }),
              0);
}

// --- after the machine stopped --------------------------------------------------------------------------------------

class WriterPowerLoss : public WriterFault {
  protected:
#if defined(__SANITIZE_THREAD__)
    void SetUp() override { GTEST_SKIP() << "the syncing thread outlives what is played here: a stop of the machine"; }
#endif
    ~WriterPowerLoss() override { velda::store::set_boot_id_path("/proc/sys/kernel/random/boot_id"); }
    void next_boot() {
        std::ofstream(path("boot")) << "boot " << ++boots_ << "\n";
        velda::store::set_boot_id_path(path("boot"));
    }

  private:
    int boots_ = 0;
};

TEST_F(WriterPowerLoss, TheNextWriterGoesOnBehindTheLastWholeRecord) {
    config->syncTransactions = 1;
    for (int n = 0; n < 50; ++n) write(file, n, std::string(200, 'x'));
    ASSERT_EQ(velda_logger_transaction_start(dp, nullptr, 0), 0);
    ASSERT_EQ(velda_logger_transaction_end(dp, nullptr), 0);
    for (int n = 50; n < 60; ++n) write(file, n, std::string(200, 'x'));
    const auto before = records();
    // The last records did not reach the disk, the configuration did.
    const Walked &torn = before[58];
    std::fstream raw(set_path(1, torn.file), std::ios::in | std::ios::out | std::ios::binary);
    raw.seekp(torn.offset + 60);
    raw << std::string(100, '\0');
    raw.close();
    next_boot();
    write(file, "after", "a");
    const auto found = records();
    ASSERT_EQ(found.size(), 59u);
    for (std::size_t n = 0; n < 58; ++n) EXPECT_EQ(found[n].bytes, before[n].bytes);
    EXPECT_EQ(found[58].strings[1], "after");
    EXPECT_EQ(found[58].offset, torn.offset);
}

TEST_F(WriterPowerLoss, RecordsThatTheConfigurationDoesNotKnowOfAreKept) {
    for (int n = 0; n < 10; ++n) write(file, n, "a");
    const LogSetInfo old_info = config->sets[0];
    std::string old_state(reinterpret_cast<const char *>(config->writer), sizeof config->writer);
    for (int n = 10; n < 30; ++n) write(file, n, std::string(500, 'b'));
    next_boot();
    config->sets[0] = old_info;
    std::memcpy(config->writer, old_state.data(), old_state.size());
    write(file, "after", "a");
    EXPECT_EQ(records().size(), 31u);
    EXPECT_EQ(records()[30].strings[1], "after");
}

TEST_F(WriterPowerLoss, RecordsOfAUseThatTheConfigurationKnowsNothingOfAreKept) {
    const LogSetInfo empty = config->sets[0];
    const std::string old_state(reinterpret_cast<const char *>(config->writer), sizeof config->writer);
    for (int n = 0; n < 30; ++n) write(file, n, std::string(500, 'b'));
    for (const bool in_transaction : {false, true}) {
        next_boot();
        const std::size_t before = records().size();
        config->sets[0] = empty;
        std::memcpy(config->writer, old_state.data(), old_state.size());
        if (in_transaction) {
            ASSERT_EQ(velda_logger_transaction_start(dp, nullptr, 100000), 0);
        }
        write(file, "after", "a");
        if (in_transaction) {
            ASSERT_EQ(velda_logger_transaction_end(dp, nullptr), 0);
        }
        EXPECT_EQ(records().size(), before + (in_transaction ? 3 : 1));
        EXPECT_EQ(records()[29].strings[1], "29");
    }
}

// --- suspended writers, changes of set ------------------------------------------------------------------------------

TEST_F(WriterFault, SuspendedWritersWaitUntilItIsLifted) {
    config->status = VELDA_LOGGER_SUSPENDED;
    std::thread lifter([this] {
        pause(150);
        std::atomic_ref(config->status).store(VELDA_LOGGER_ACTIVE);
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(write(file, "K", "a"), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(140));
    lifter.join();
    EXPECT_EQ(summary(), Lines{"WRITE F K"});
}

TEST_F(WriterFault, AWaitOfASuspendedWriterCanBeInterrupted) {
    write(file, "K", "old");
    config->status = VELDA_LOGGER_SUSPENDED;
    std::thread interrupter([this] {
        pause(100);
        velda::raise_interrupt(dp);
    });
    message_of_write("new");
    interrupter.join();
    EXPECT_EQ(read(file, "K"), "old");
    config->status = VELDA_LOGGER_ACTIVE;
    EXPECT_EQ(write(file, "K", "new"), 1) << "the file's turn was not held";
}

TEST_F(WriterFault, AReadDoesNotWaitForASuspendedWriter) {
    write(file, "K", "old");
    config->status = VELDA_LOGGER_SUSPENDED;
    EXPECT_EQ(read(file, "K"), "old");
}

TEST_F(WriterFault, TheEndOfASetStandsBehindItsRecordsAndDoesNotCountWhileItIsCurrent) {
    write(file, "K", "a");
    const std::int64_t count = config->sets[0].recordCount;
    ASSERT_EQ(VediLoggerMisc(dp, 3), 0);
    EXPECT_EQ(config->sets[0].recordCount, count);
    ++config->sets[0].recordCount;  // for the walk
    const auto found = records();
    EXPECT_EQ(found.back().type, 1);
    EXPECT_EQ(found.back().bytes.size(), 48 + 5 + 8u);
    --config->sets[0].recordCount;
    EXPECT_EQ(write(file, "K", "b"), 1) << "nobody changed the set";
    EXPECT_EQ(summary(), (Lines{"WRITE F K", "WRITE F K"}));
}

TEST_F(WriterFault, AChangeThatItsProcessDidNotFinishIsFinishedByTheNextWriter) {
    write(file, "K", "a");
    for (const int died_behind : {0, 1, 2, 3}) {
        const std::uint32_t current = config->currentSet, next = 3 - current;
        in_child([&] {
            DP *const child = velda_getdp();
            VediLoggerMisc(child, 25);
            velda_logger_hold_writers(child);
            if (died_behind >= 1) VediLoggerMisc(child, 3);
            if (died_behind >= 2) config->currentSet = next;
            if (died_behind >= 3) reset(static_cast<int>(next), velda_logger_next_time(child));
            raise(SIGKILL);
            return 0;
        });
        EXPECT_EQ(config->status, 2u);
        EXPECT_EQ(write(file, "K", "after " + std::to_string(died_behind)), 1);
        EXPECT_EQ(config->status, 1u);
        EXPECT_EQ(config->currentSet, died_behind == 3 ? next : current);
        EXPECT_EQ(shown(records(static_cast<int>(config->currentSet)).back().payload.substr(12)),
                  "after " + std::to_string(died_behind));
    }
    EXPECT_EQ(records(1).size(), 4u);
    EXPECT_EQ(records(2).size(), 1u);
}

TEST_F(WriterFault, ASessionUnderWayIsWaitedForAndItsAppendsGoThrough) {
    ASSERT_EQ(VediLoggerMisc(dp, 16), 0);
    const pid_t child = fork();
    if (child == 0) {
        DP *const other = velda_new_context();
        VediLoggerMisc(other, 25);
        velda_logger_hold_writers(other);
        config->sets[0].setState = 7;  // a sign that nobody is under way
        velda_logger_release_writers(other);
        VediLoggerMisc(other, 26);
        _exit(0);
    }
    while (config->status != VELDA_LOGGER_SUSPENDED) pause(1);
    EXPECT_EQ(write(file, "K", "a"), 1);
    pause(50);
    EXPECT_EQ(config->sets[0].setState, 0u);
    ASSERT_EQ(VediLoggerMisc(dp, 17), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(config->sets[0].setState, 7u);
    EXPECT_EQ(config->status, 1u);
}

TEST_F(WriterFault, SessionsThatWereUnderWayLeaveRoomForAnyNumberOfOthers) {
    alarm(30);
    std::vector<std::unique_ptr<ScratchSession>> sessions;
    for (int n = 0; n < velda::journal::WriterState::UnderWaySlots + 10; ++n) {
        sessions.push_back(std::make_unique<ScratchSession>());
        ASSERT_EQ(VediLoggerMisc(*sessions.back(), 16), 0);
        ASSERT_EQ(VediLoggerMisc(*sessions.back(), 17), 0);
    }
    alarm(0);
}

TEST_F(WriterFault, MoreSessionsThanPlacesWaitForOneThatEnds) {
    std::vector<std::unique_ptr<ScratchSession>> sessions;
    for (int n = 0; n < velda::journal::WriterState::UnderWaySlots; ++n) {
        sessions.push_back(std::make_unique<ScratchSession>());
        ASSERT_EQ(VediLoggerMisc(*sessions.back(), 16), 0);
    }
    std::thread ender([&] {
        pause(50);
        VediLoggerMisc(*sessions[77], 17);
    });
    EXPECT_EQ(VediLoggerMisc(dp, 16), 0);
    ender.join();
    EXPECT_EQ(VediLoggerMisc(dp, 17), 0);
}

TEST_F(WriterFault, PlacesOfSessionsThatDiedUnderWayAreTakenOver) {
    alarm(30);
    in_child([&] {
        for (int n = 0; n < velda::journal::WriterState::UnderWaySlots; ++n) VediLoggerMisc(velda_new_context(), 16);
        raise(SIGKILL);
        return 0;
    });
    EXPECT_EQ(VediLoggerMisc(dp, 16), 0);
    EXPECT_EQ(VediLoggerMisc(dp, 17), 0);
    alarm(0);
}

TEST_F(WriterFault, ASessionThatDiedUnderWayIsNotWaitedFor) {
    in_child([&] {
        VediLoggerMisc(velda_getdp(), 16);
        raise(SIGKILL);
        return 0;
    });
    alarm(20);
    VediLoggerMisc(dp, 25);
    velda_logger_hold_writers(dp);
    velda_logger_release_writers(dp);
    VediLoggerMisc(dp, 26);
    alarm(0);
    EXPECT_EQ(config->status, 1u);
}

TEST_F(WriterFault, StampsOfUsesRiseAlsoWithinASecond) {
    std::int64_t last = 0;
    for (int n = 0; n < 5; ++n) {
        const std::int64_t time = velda_logger_next_time(dp);
        EXPECT_GT(time, last);
        for (const LogSetInfo &set : config->sets) EXPECT_GT(time, set.timeFirst);
        reset(1 + n % 2, last = time);
    }
    config->sets[5].timeLast = last + 1000;
    EXPECT_EQ(velda_logger_next_time(dp), last + 1000);
}
