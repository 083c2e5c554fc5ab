// The duplicator's entry: its options, its name, the slot in which others watch it.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "journal/duplicator/dup_log.h"
#include "journal/duplicator/dup_options.h"
#include "journal/journal.h"
#include "tests/duplicator/replay_fixture.h"

namespace {

using namespace velda;
using namespace velda::journal;
using namespace velda::test;

class Entry : public LoggerTest {
  protected:
    DupOptions options_of(const std::vector<std::string> &words) {
        const auto options = read_options(dp, "vlogdup", words);
        EXPECT_TRUE(options) << words[0];
        return options.value_or(DupOptions{});
    }

    // Runs the duplicator as a command; what it prints is in `printed` and `said`.
    int duplicate(const std::string &sentence) {
        ::testing::internal::CaptureStderr();
        ::testing::internal::CaptureStdout();
        const int code = velda_run(
            dp, sentence.c_str(), [](DP *session, void *) { DupLog(session); }, nullptr);
        printed = ::testing::internal::GetCapturedStdout();
        said = ::testing::internal::GetCapturedStderr();
        return code;
    }

    template <class Condition>
    static bool eventually(Condition condition) {
        for (int tries = 0; tries < 1000 && !condition(); ++tries)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return condition();
    }

    std::string printed;
};

// A process that does something and then waits, until it is killed with the object.
class Child {
  public:
    explicit Child(const std::function<void()> &body) {
        std::fflush(nullptr);
        process = fork();
        if (process != 0) return;
        body();
        for (;;) pause();
    }
    ~Child() {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    pid_t process;
};

TEST_F(Entry, WithoutOptionsARunHasItsDefaults) {
    const DupOptions options = options_of({"INPUT"});
    EXPECT_EQ(options.max_errors, 10000u);
    EXPECT_EQ(options.progress_every, 0u);
    EXPECT_EQ(options.verbose_level, 0u);
    EXPECT_FALSE(options.exclusive || options.future || options.concise_help || options.verbose_help);
    EXPECT_EQ(options.error_file + options.log_file, "");
    EXPECT_EQ(options.operands, std::vector<std::string>{"INPUT"});
}

TEST_F(Entry, EachOptionSetsWhatItStandsFor) {
    EXPECT_EQ(options_of({"-e", "errors"}).error_file, "errors");
    EXPECT_EQ(options_of({"-eerrors"}).error_file, "errors");
    EXPECT_TRUE(options_of({"-f"}).future);
    EXPECT_EQ(options_of({"-llog"}).log_file, "log");
    EXPECT_EQ(options_of({"-m7"}).max_errors, 7u);
    EXPECT_EQ(options_of({"-u", "50"}).progress_every, 50u);
    EXPECT_TRUE(options_of({"-x"}).exclusive);
    EXPECT_TRUE(options_of({"-h"}).concise_help);
    EXPECT_TRUE(options_of({"-?"}).concise_help);
    EXPECT_TRUE(options_of({"-H"}).verbose_help);
    EXPECT_EQ(options_of({"-Jvalue", "INPUT"}).operands, std::vector<std::string>{"INPUT"});
}

TEST_F(Entry, VerboseLevelsShowEveryRecord) {
    const DupOptions verbose = options_of({"-v"}), very_verbose = options_of({"-V"});
    EXPECT_EQ(verbose.verbose_level, 1u);
    EXPECT_EQ(verbose.progress_every, 1u);
    EXPECT_EQ(very_verbose.verbose_level, 2u);
    EXPECT_EQ(very_verbose.progress_every, 1u);
}

TEST_F(Entry, OptionsMayStandInOneWordWhoseRestIsTheLastOnesValue) {
    const DupOptions options = options_of({"-xfm12", "-Vu", "3", "INPUT", "-x"});
    EXPECT_TRUE(options.exclusive && options.future);
    EXPECT_EQ(options.max_errors, 12u);
    EXPECT_EQ(options.verbose_level, 2u);
    EXPECT_EQ(options.progress_every, 3u);
    EXPECT_EQ(options.operands, (std::vector<std::string>{"INPUT", "-x"})) << "options end at the first other word";
}

TEST_F(Entry, TheProgramsNameIsWhatFollowsItsDirectory) {
    for (const char *const sentence : {"vlogdup -h", "C:\\velda\\bin\\vlogdup -h", "/usr/bin/vlogdup -h"}) {
        EXPECT_EQ(duplicate(sentence), 0);
        EXPECT_TRUE(printed.starts_with("Usage: Called as:\n   vlogdup: {-options} INPUT")) << printed;
    }
}

TEST_F(Entry, TheSlotShowsBothSidesOfARun) {
    VELDALoggerConfig &config = defined();
    SetBuilder set({system_ / "set"}, 1000000);
    set.add(checkpoint_record(1, ""));
    set.write();
    set.configure(config);
    config.currentSet = 1;
    const Child child([&] { duplicate("vlogdup INPUT set=1 terminate=wait OUTPUT set=tty noflush=yes prompt=no"); });
    const DupStatusSlot &slot = config.dupSlots[0];
    EXPECT_TRUE(eventually([&] { return std::string(slot.statusText) == "SLEEPing: Waiting INPUT data"; }));
    EXPECT_EQ(slot.pid, static_cast<std::uint32_t>(child.process));
    EXPECT_STREQ(slot.inputSpec, "set=1 terminate=wait");
    EXPECT_EQ(slot.inputDevice, LogSetDevice);
    EXPECT_EQ(slot.inputFlags, SelectWait);
    EXPECT_STREQ(slot.outputSpec, "set=tty noflush=yes prompt=no");
    EXPECT_EQ(slot.outputDevice, Tty);
    EXPECT_EQ(slot.outputFlags, SelectNoFlush);
}

TEST_F(Entry, WithoutAFreeSlotTheRunEndsWithTheError) {
    const VELDALoggerConfig &config = defined();
    std::vector<std::unique_ptr<Child>> all;
    for (int n = 0; n < VELDA_LOGGER_DUP_SLOTS; ++n)
        all.push_back(std::make_unique<Child>([] { VELDALoggerStatusAllocate(velda_getdp()); }));
    ASSERT_TRUE(eventually(
        [&] { return std::ranges::all_of(config.dupSlots, [](const DupStatusSlot &slot) { return slot.pid != 0; }); }));
    EXPECT_EQ(duplicate("vlogdup INPUT set=1 OUTPUT set=null"), 2);
    EXPECT_EQ(said, "Error! No free slots, all 8 entries taken\n");
}

}  // namespace
