// The administrator's operations: every text, every refusal.
#include <cerrno>
#include <csignal>
#include <fstream>
#include <vector>

#include "runtime/journal/log_format.h"
#include "tests/journal/fixture.h"
#include "tests/support/terminal_program.h"

using velda::test::LoggerTest;

namespace {

class Admin : public LoggerTest {
  protected:
    Admin() : config(defined()) {}

    // A set with one file that exists.
    void make_set(int set) {
        EXPECT_EQ(set_file(set, 1, system_ / ("set" + std::to_string(set))), 0) << said;
        logged();
    }
    int change_status(int status) {
        return admin([&] { return VELDALoggerChangeStatus(dp, status); });
    }
    int truncate(int set) {
        return admin([&] { return VELDALoggerTruncateLog(dp, set); });
    }
    int archive(int set, int file, const std::string &path, const std::string &location) {
        const VAR name(path), place(location);
        return admin([&] { return VELDALoggerSetArchive(dp, set, file, &name, &place); });
    }
    int import(int set, const std::vector<std::string> &names) {
        VAR list;
        for (std::size_t n = 0; n < names.size(); ++n) list(static_cast<int>(n) + 1) = names[n];
        return admin([&] { return VELDALoggerImportFile(dp, set, static_cast<int>(names.size()), &list); });
    }
    // A log file that begins with a block of a set.
    std::string block_file(const std::string &name, std::string_view marker, int64_t time, std::size_t size = 4096) {
        std::string block(4096, '\0');
        block.replace(0, 8, marker);
        vputlong64(block.data() + 8, time);
        LogSetInfo info = {};
        info.timeFirst = time, info.recordCount = 33;
        std::strcpy(info.files[5].path, "/not/adopted");
        std::memcpy(block.data() + 16, &info, sizeof info);
        std::ofstream(system_ / name, std::ios::binary) << block.substr(0, size);
        return system_ / name;
    }

    VELDALoggerConfig &config;
};

using velda::journal::BlockMarker;
using velda::journal::FirstBlockMarker;

}  // namespace

// --- status ------------------------------------------------------------------------------------------------------

TEST_F(Admin, AStatusIsStoredSavedAndLogged) {
    make_set(3);
    swap(3);
    logged();
    const uint32_t count = config.updateCount;
    EXPECT_EQ(change_status(1), 0);
    EXPECT_EQ(config.status, 1u);
    EXPECT_EQ(config.updateCount, count + 1);
    EXPECT_EQ(config.updatedPort, static_cast<uint32_t>(VELDAGetPortNumber(dp)));
    EXPECT_EQ(std::string(config.updatedUser), velda::system_number(1015).str());
    EXPECT_NEAR(static_cast<double>(config.updatedTime), static_cast<double>(time(nullptr)), 2);
    EXPECT_EQ(change_status(2), 0);
    EXPECT_EQ(change_status(0), 0);
    EXPECT_EQ(
        logged(),
        "Status of logger set to active (current log set 3)|Status of logger set to SUSPENDED (current log set 3)|"
        "Status of logger set to INACTIVE (current log set 3)");
}

TEST_F(Admin, AnotherStatusIsInvalid) {
    EXPECT_EQ(change_status(3), 22);
    EXPECT_EQ(said, "vlogadmin: Invalid status value passed\n");
    EXPECT_EQ(change_status(-1), 22);
}

TEST_F(Admin, WithoutACurrentSetTheStatusStays) {
    EXPECT_EQ(change_status(1), 22);
    EXPECT_EQ(said, "vlogadmin: Unable to change status while active set is switched to 0\n");
    EXPECT_EQ(logged(), "");
}

TEST_F(Admin, OnlyASetThatCanBeUsedTurnsActive) {
    config.currentSet = 4;
    EXPECT_EQ(change_status(1), 2);
    EXPECT_EQ(said, "vlogadmin: Error! No files configured for set number 4\n");
    EXPECT_EQ(change_status(2), 0) << "suspending needs no files";
}

// --- switch --------------------------------------------------------------------------------------------------------

TEST_F(Admin, ASwitchEmptiesTheSetAndKeepsTheStatus) {
    make_set(2);
    config.status = 1, config.lastCheckpoint = 5;
    LogSetInfo &set = config.sets[1];
    set.setState = 1, set.recordCount = 9, set.currentFile = 1, set.fileOffset = 4096, set.archivedTime = 3;
    std::memset(config.statistics, 1, sizeof config.statistics);
    std::memset(set.archiveLocation, 'l', sizeof set.archiveLocation);
    config.switchedPort = 999, std::strcpy(config.switchedUser, "before");
    std::filesystem::resize_file(system_ / "set2", 40960);
    EXPECT_EQ(swap(2), 0);
    EXPECT_EQ(config.currentSet, 2u);
    EXPECT_EQ(config.status, 1u);
    EXPECT_EQ(config.lastCheckpoint, -1);
    EXPECT_EQ(config.switchedPort, static_cast<uint32_t>(VELDAGetPortNumber(dp)));
    EXPECT_EQ(std::string(config.switchedUser), velda::system_number(1015).str());
    EXPECT_EQ(set.setState, 0u);
    EXPECT_EQ(set.recordCount, 0);
    EXPECT_EQ(set.currentFile, 0u);
    EXPECT_EQ(set.fileOffset, 0);
    EXPECT_EQ(set.archivedTime, 0);
    // Deliberately no more of it is cleared.
    EXPECT_EQ(std::string(set.archiveLocation, 192), std::string(191, 'l') + '\0');
    EXPECT_EQ(set.blockPosition, 4096u);
    EXPECT_EQ(config.blockSize, 4096u);
    EXPECT_EQ(set.timeFirst, static_cast<int64_t>(config.switchedTime));
    EXPECT_EQ(set.timeLast, set.timeFirst);
    EXPECT_EQ(vgetlong64(set.timeFirstPortable), set.timeFirst);
    EXPECT_NEAR(static_cast<double>(set.timeFirst), static_cast<double>(time(nullptr)), 2);
    for (const uint32_t word : config.statistics) EXPECT_EQ(word, 0u);
    EXPECT_EQ(std::filesystem::file_size(system_ / "set2"), 4096u);
    EXPECT_EQ(logged(), "Log set changed to 2");
}

TEST_F(Admin, ASwitchToTheCurrentSetEmptiesIt) {
    make_set(2);
    swap(2);
    config.sets[1].recordCount = 9;
    EXPECT_EQ(swap(2), 0);
    EXPECT_EQ(config.currentSet, 2u);
    EXPECT_EQ(config.sets[1].recordCount, 0);
}

TEST_F(Admin, AFileWithALimitKeepsItsLengthAtASwitch) {
    make_set(2);
    config.sets[1].files[0].maxSize = 100000;
    std::filesystem::resize_file(system_ / "set2", 40960);
    swap(2);
    EXPECT_EQ(std::filesystem::file_size(system_ / "set2"), 40960u);
}

TEST_F(Admin, ASwitchToNoneTurnsTheJournalOff) {
    make_set(2);
    swap(2);
    change_status(1);
    logged();
    const uint32_t count = config.updateCount;
    EXPECT_EQ(swap(0), 0);
    EXPECT_EQ(config.currentSet, 0u);
    EXPECT_EQ(config.status, 0u);
    EXPECT_EQ(config.updateCount, count + 3) << "two saves and the change itself";
    EXPECT_EQ(logged(), "Status of logger set to INACTIVE (current log set 2)|Log set changed to 0");
}

TEST_F(Admin, TheEldestSetHasTheSmallestTimeAboveZero) {
    for (const int set : {2, 5, 9}) make_set(set);
    config.currentSet = 2;
    config.sets[1].timeFirst = 300, config.sets[4].timeFirst = 100, config.sets[8].timeFirst = 200;
    EXPECT_EQ(swap(-1), 0);
    EXPECT_EQ(config.currentSet, 5u);
}

TEST_F(Admin, TheNextSetWrapsAndPassesUnusableOnes) {
    make_set(2);
    make_set(15);
    config.currentSet = 15;
    EXPECT_EQ(swap(-2), 0);
    EXPECT_EQ(config.currentSet, 2u);
    EXPECT_EQ(said, "") << "the search is quiet";
}

TEST_F(Admin, WithEveryOtherSetUnconfiguredTheNextIsTheCurrentOne) {
    make_set(7);
    config.currentSet = 7;
    EXPECT_EQ(swap(-2), 0);
    EXPECT_EQ(config.currentSet, 7u);
}

TEST_F(Admin, AnUnusableSetIsNotSwitchedTo) {
    EXPECT_EQ(swap(17), 22);
    EXPECT_EQ(said, "vlogadmin: Error! Invalid value for set number, should be in range 1 to 16\n");
    EXPECT_EQ(swap(6), 2);
    EXPECT_EQ(said, "vlogadmin: Error! No files configured for set number 6\n");
    EXPECT_EQ(swap(-3), 22);
    EXPECT_EQ(config.currentSet, 0u);
}

TEST_F(LoggerTest, ASwitchWithoutAJournalGivesMinusTwo) { EXPECT_EQ(swap(1), -2); }

TEST_F(Admin, TwoAdministratorsWhoSwitchAtOnceLeaveAWholeSwitch) {
    make_set(1);
    make_set(2);
    config.status = 1;
    pid_t children[2];
    for (int n = 0; n < 2; ++n) {
        children[n] = fork();
        if (children[n] != 0) continue;
        int failed = 0;
        for (int round = 0; round < 30; ++round) failed += VELDALoggerSwapLog(velda_getdp(), n + 1) != 0;
        _exit(failed);
    }
    for (const pid_t child : children) {
        int status = 1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(config.status, 1u) << "no switch took the other's suspension for the status";
    EXPECT_EQ(config.sets[config.currentSet - 1].timeFirst, static_cast<int64_t>(config.switchedTime));
}

TEST_F(Admin, TwoSwitchesWithinASecondGiveTwoStamps) {
    make_set(1);
    make_set(2);
    int64_t last = 0;
    for (int n = 0; n < 4; ++n) {
        ASSERT_EQ(swap(1 + n % 2), 0);
        EXPECT_GT(config.sets[n % 2].timeFirst, last);
        last = config.sets[n % 2].timeFirst;
    }
}

TEST_F(Admin, TwoAdministratorsWhoAskForTheNextSetGetTwoSets) {
    for (int set = 1; set <= 16; ++set) make_set(set);
    config.currentSet = 1, config.status = 1;
    pid_t children[3];
    for (pid_t &child : children) {
        child = fork();
        if (child != 0) continue;
        int failed = 0;
        for (int round = 0; round < 5; ++round) failed += VELDALoggerSwapLog(velda_getdp(), -2) != 0;
        _exit(failed);
    }
    for (const pid_t child : children) {
        int status = 1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(config.currentSet, 16u) << "fifteen switches";
}

TEST_F(Admin, ASetThatIsLeftEndsWithItsEofRecord) {
    make_set(1);
    make_set(2);
    swap(1);
    change_status(1);
    ASSERT_EQ(swap(2), 0);
    std::ifstream file(system_ / "set1", std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    ASSERT_GT(bytes.size(), 3721u);
    EXPECT_EQ(bytes.substr(3660, 8),
              "V\xFF"
              "R\xFF"
              "E\xFF"
              "C\xFF");
    EXPECT_EQ(bytes[3660 + 20], 1);
    EXPECT_EQ(config.sets[0].recordCount, 0);
}

TEST_F(Admin, ASetWhoseFileIsGoneIsLeftAndTheLogSaysThatItHasNoEnd) {
    make_set(1);
    make_set(2);
    swap(1);
    change_status(1);
    logged();
    std::filesystem::remove(system_ / "set1");
    ASSERT_EQ(swap(2), 0);
    EXPECT_EQ(config.currentSet, 2u);
    EXPECT_EQ(config.status, 1u);
    const std::string log = logged();
    EXPECT_NE(log.find(" severity 2: Log set 1 is left without its end: cannot find journal file '" +
                       (system_ / "set1") + "': No such file or directory|Log set changed to 2"),
              std::string::npos)
        << log;
}

TEST_F(Admin, ASetWhoseFileIsGoneIsNotSwitchedTo) {
    make_set(2);
    std::filesystem::remove(system_ / "set2");
    const auto ending =
        velda::test::run_on_pipes("n\n", [](DP *session) { velda::exit_command(VELDALoggerSwapLog(session, 2)); });
    EXPECT_EQ(ending.exit_code, 2);
    EXPECT_EQ(config.currentSet, 0u);
}

// --- one administrator at a time -----------------------------------------------------------------------------------

// While somebody changes the sets, another's operation waits, and then finds the set to be the current one.
TEST_F(Admin, ASetThatBecomesCurrentMeanwhileIsLeftAlone) {
    make_set(2);
    const std::string path = system_ / "set2", log = block_file("log", FirstBlockMarker, 777);
    const std::function<int(DP *)> operations[] = {
        [](DP *session) { return VELDALoggerTruncateLog(session, 2); },
        [&](DP *session) {
            const VAR name(system_ / "more");
            return VELDALoggerSetFile(session, 2, 2, 1, &name);
        },
        [](DP *session) {
            const VAR none("");
            return VELDALoggerSetFile(session, 2, 1, 0, &none);
        },
        [&](DP *session) {
            const VAR name(path), location("vault");
            return VELDALoggerSetArchive(session, 2, 1, &name, &location);
        },
        [&](DP *session) {
            const VAR list(log);
            return VELDALoggerImportFile(session, 2, 1, &list);
        },
    };
    for (const auto &operation : operations) {
        config.currentSet = 0, config.status = 0;
        ASSERT_EQ(VediLoggerMisc(dp, VELDA_LOGGER_BEGIN_CHANGE), 0);
        const pid_t child = fork();
        if (child == 0) _exit(operation(velda_getdp()));
        usleep(100'000);
        config.sets[1].recordCount = 9, config.sets[1].timeFirst = 500;
        config.currentSet = 2, config.status = 1;
        VediLoggerMisc(dp, VELDA_LOGGER_END_CHANGE);
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(WEXITSTATUS(status), 22);
        EXPECT_EQ(config.sets[1].recordCount, 9);
        EXPECT_EQ(config.sets[1].timeFirst, 500);
        EXPECT_EQ(config.sets[1].archivedTime, 0);
        EXPECT_EQ(std::string(config.sets[1].files[0].path), path);
        EXPECT_STREQ(config.sets[1].files[1].path, "");
    }
}

// --- truncation ----------------------------------------------------------------------------------------------------

TEST_F(Admin, ASetIsTruncated) {
    make_set(2);
    config.sets[1].recordCount = 5;
    EXPECT_EQ(truncate(2), 0);
    EXPECT_EQ(config.sets[1].recordCount, 0);
    EXPECT_EQ(logged(), "Log set 2 truncated");
}

TEST_F(Admin, TheCurrentSetIsTruncatedOnlyWhileInactive) {
    make_set(2);
    swap(2);
    change_status(2);
    EXPECT_EQ(truncate(2), 22);
    EXPECT_EQ(said, "Error! Cannot truncate an active log set\n");
    change_status(0);
    EXPECT_EQ(truncate(2), 0);
}

// --- files of a set --------------------------------------------------------------------------------------------

TEST_F(Admin, AFileIsNamedMadeAndGivenItsFirstBlock) {
    config.sets[3].recordCount = 9;
    EXPECT_EQ(set_file(4, 2, system_ / "log"), 0);
    const LogFileEntry &entry = config.sets[3].files[1];
    EXPECT_EQ(std::string(entry.path), system_ / "log");
    EXPECT_EQ(entry.maxSize, -1);
    EXPECT_NEAR(static_cast<double>(entry.createdTime), static_cast<double>(time(nullptr)), 2);
    EXPECT_EQ(config.sets[3].recordCount, 0) << "the set is emptied";
    EXPECT_EQ(config.sets[3].timeFirst, 0);
    EXPECT_EQ(content(system_ / "log"), std::string(4095, '\0') + "x");
    EXPECT_EQ(logged(), "File 2 for log set 4 changed to " + (system_ / "log"));
}

TEST_F(Admin, AnEmptyPathRemovesTheFile) {
    make_set(4);
    LogFileEntry &entry = config.sets[3].files[0];
    entry.createdTime = 5, config.sets[3].recordCount = 9;
    std::filesystem::resize_file(system_ / "set4", 40960);
    EXPECT_EQ(set_file(4, 1, ""), 0);
    EXPECT_EQ(std::string(entry.path, 192), std::string(192, '\0'));
    EXPECT_NEAR(static_cast<double>(entry.createdTime), static_cast<double>(time(nullptr)), 2);
    EXPECT_EQ(entry.maxSize, -1);
    EXPECT_EQ(config.sets[3].recordCount, 0) << "the set is emptied";
    EXPECT_EQ(config.sets[3].timeFirst, 0);
    EXPECT_EQ(std::filesystem::file_size(system_ / "set4"), 4096u) << "while the file was still its own";
    EXPECT_EQ(logged(), "File 1 for log set 4 REMOVED");
    EXPECT_TRUE(std::filesystem::exists(system_ / "set4"));
}

TEST_F(Admin, SetAndFileNumbersAreChecked) {
    for (const int bad : {0, 17, -1}) {
        EXPECT_EQ(set_file(bad, 1, "/x"), 22);
        EXPECT_EQ(said, "vlogadmin: Error! Invalid value for set number, should be in range 1 to 16\n");
        EXPECT_EQ(set_file(1, bad, "/x"), 22);
        EXPECT_EQ(said, "vlogadmin: Error! Invalid value for log file number , should be in range 1 to 16\n");
    }
}

TEST_F(Admin, FilesOfTheCurrentSetStayAlsoWhileInactive) {
    make_set(3);
    swap(3);
    EXPECT_EQ(set_file(3, 2, system_ / "more"), 22);
    EXPECT_EQ(said, "vlogadmin: Error! Set 3 is currently active and the files cannot be amended\n");
}

TEST_F(Admin, APathOf191BytesIsTakenAnd192AreNot) {
    std::string path = system_.path() + "/";
    path += std::string(191 - path.size(), 'n');
    EXPECT_EQ(set_file(1, 1, path), 0) << said;
    EXPECT_EQ(set_file(1, 2, path + "n"), 22);
    EXPECT_EQ(said, "vlogadmin: Error! File name too long , maximum of 191 characters\n");
}

TEST_F(Admin, APathOfAnotherSlotIsADuplicate) {
    make_set(4);
    const std::string path = system_ / "set4";
    EXPECT_EQ(set_file(9, 3, path), 17);
    EXPECT_EQ(said, "vlogadmin: Error! File name " + path + " already exists in file 1 in set 4\n");
    EXPECT_EQ(set_file(4, 2, path), 17);
}

TEST_F(Admin, ThePathOfTheSameSlotIsNoDuplicate) {
    make_set(4);
    EXPECT_EQ(set_file(4, 1, system_ / "set4"), 0);
}

TEST_F(Admin, ARelativePathIsRefused) {
    for (const char *path : {"log", "c:log", "c:"}) {
        EXPECT_EQ(set_file(1, 1, path), 22);
        EXPECT_EQ(said, std::string("vlogadmin: Error! File name ") + path + " MUST be an absolute path name\n");
    }
}

TEST_F(Admin, ADrivePrefixOrEitherSeparatorMakesAPathAbsolute) {
    for (const char *path : {"\\absent\\log", "/absent/log", "c:\\absent\\log", "c:/absent/log"}) {
        EXPECT_EQ(set_file(1, 1, path, 0), 2) << "it is not there, but that is all";
        EXPECT_EQ(said.find("MUST be"), std::string::npos) << said;
    }
}

TEST_F(Admin, APathIsKeptWithTheSeparatorsByWhichTheWriterOpensIt) {
    const std::string path = system_ / "log";
    const VAR given = velda::convert(VAR(path), "/", "\\");
    EXPECT_EQ(set_file(1, 1, given.str()), 0) << said;
    EXPECT_STREQ(config.sets[0].files[0].path, path.c_str());
    EXPECT_EQ(set_file(2, 1, given.str()), 17) << "the same file";
    EXPECT_EQ(swap(1), 0);
    EXPECT_EQ(said, "");
    logged();
    EXPECT_EQ(swap(0), 0);
    EXPECT_EQ(logged().find("without its end"), std::string::npos);
    const auto a = block_file("a", FirstBlockMarker, 777);
    EXPECT_EQ(import(6, {velda::convert(VAR(a), "/", "\\").str()}), 0) << said;
    EXPECT_STREQ(config.sets[5].files[0].path, a.c_str());
}

TEST_F(Admin, WithoutLeaveNoFileIsMade) {
    EXPECT_EQ(set_file(1, 1, system_ / "log", 0), 2);
    EXPECT_NE(said.find(system_ / "log"), std::string::npos) << said;
    EXPECT_FALSE(std::filesystem::exists(system_ / "log"));
    EXPECT_STREQ(config.sets[0].files[0].path, "");
}

TEST_F(Admin, InADirectoryThatMayNotBeWrittenNoFileIsMadeAndTheSetStays) {
    make_set(4);
    config.sets[3].recordCount = 9;
    const std::string directory = system_ / "closed", path = directory + "/log";
    std::filesystem::create_directory(directory);
    std::filesystem::permissions(directory, std::filesystem::perms(0555));
    for (const char *const open_to_all : {"", "config", "config/vediLoggerConfig", "config/vediLoggerTransLock"})
        std::filesystem::permissions(system_ / open_to_all, std::filesystem::perms(0777));
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(2);
        const int error = set_file(4, 2, path);
        _exit(error == EACCES && said == path + ": Permission denied\n" ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_STREQ(config.sets[3].files[1].path, "");
    EXPECT_EQ(config.sets[3].recordCount, 9);
}

TEST_F(Admin, TheOperatorIsAskedBeforeAFileIsMade) {
    for (const auto &[reply, made] : {std::pair("n", false), {"yes", false}, {"y", true}}) {
        const std::string path = system_ / "log";
        velda::test::OnTerminal terminal([path](DP *session) {
            const VAR name(path);
            velda::exit_command(VELDALoggerSetFile(session, 1, 1, -1, &name));
        });
        terminal.prompted("PROGRAM: File '" + path + "' cannot be opened.\r\nDo you want to create this file (Y/N) ? ");
        terminal.type(std::string(reply) + "\n");
        EXPECT_EQ(terminal.exit_code(), made ? 0 : 2);
        EXPECT_EQ(std::filesystem::exists(path), made);
    }
}

TEST_F(Admin, ABackgroundJobIsNotAsked) {
    const std::string path = system_ / "log";
    const auto ending = velda::test::run_on_pipes("y\n", [path](DP *session) {
        const VAR name(path);
        velda::exit_command(VELDALoggerSetFile(session, 1, 1, -1, &name));
    });
    EXPECT_EQ(ending.exit_code, 2);
    EXPECT_NE(ending.output.find("Unable to prompt user when a background job\n"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(path));
}

void print_event(DP *dp, int event, ...) { VELDAprintf(dp, "<%d>", event); }

TEST_F(Admin, APromptCallsBackBeforeAndBehindTheQuestion) {
    velda::test::OnTerminal terminal([](DP *session) {
        char reply[VELDA_LOGGER_REPLY_BYTES];
        const int error = VELDALoggerPromptReply(session, reply, print_event, "Number %d? ", 5);
        VELDAprintf(session, "[%d:%s]\n", error, reply);
    });
    EXPECT_EQ(terminal.until("Number 5? "), "<7>");
    terminal.type("abc\n");
    terminal.until("<8>");
    terminal.until("[0:abc]");
    EXPECT_EQ(terminal.exit_code(), 0);
}

TEST_F(Admin, AtTheEndOfTheInputTheReplyIsEmptyAndTheErrorIsTold) {
    velda::test::OnTerminal terminal([](DP *session) {
        char reply[VELDA_LOGGER_REPLY_BYTES] = "old";
        const int error = VELDALoggerPromptReply(session, reply, print_event, "Number? ");
        VELDAprintf(session, "[%d:%s]\n", error, reply);
    });
    terminal.prompted("Number? ");
    terminal.type("\x04");
    EXPECT_EQ(terminal.until("[0:]"), "\r\n\r\nError number 0 reading from stdin\r\n<8>");
    EXPECT_EQ(terminal.exit_code(), 0);
}

TEST_F(Admin, AReplyHas1023BytesAtMost) {
    velda::test::OnTerminal terminal([](DP *session) {
        char reply[VELDA_LOGGER_REPLY_BYTES];
        const int error = VELDALoggerPrompt(session, reply, "Text? ");
        VELDAprintf(session, "[%d:%zu]\n", error, std::strlen(reply));
    });
    terminal.prompted("Text? ");
    terminal.type(std::string(1100, 't') + "\n");
    terminal.until("[0:1023]");
}

// --- archive -----------------------------------------------------------------------------------------------------

TEST_F(Admin, AnArchivedSetIsMarkedInTheConfigurationAndInTheCopy) {
    make_set(2);
    const std::string copy = block_file("copy", FirstBlockMarker, 77);
    config.sets[1].recordCount = 12;
    const std::string own_before = content(system_ / "set2");
    EXPECT_EQ(archive(2, 1, copy, "tape 7"), 0);
    EXPECT_STREQ(config.sets[1].archiveLocation, "tape 7");
    EXPECT_NEAR(static_cast<double>(config.sets[1].archivedTime), static_cast<double>(time(nullptr)), 2);
    const std::string block = content(copy);
    EXPECT_EQ(block.size(), 4096u);
    EXPECT_EQ(block.substr(0, 8), FirstBlockMarker);
    EXPECT_EQ(std::memcmp(block.data() + 16, &config.sets[1], 3624), 0);
    EXPECT_EQ(content(system_ / "set2"), own_before) << "the set's own file is another one";
    EXPECT_EQ(logged(), "Log set 2 archived to location tape 7");
}

TEST_F(Admin, TheSetsOwnFileCanBeStamped) {
    make_set(2);
    EXPECT_EQ(archive(2, 1, system_ / "set2", "here"), 0);
    EXPECT_EQ(std::memcmp(content(system_ / "set2").data() + 16, &config.sets[1], 3624), 0);
}

TEST_F(Admin, ALocationOf192BytesFillsItsField) {
    make_set(2);
    EXPECT_EQ(archive(2, 1, system_ / "set2", std::string(300, 'l')), 0);
    EXPECT_EQ(std::string(config.sets[1].archiveLocation, 192), std::string(192, 'l'));
    EXPECT_STREQ(config.sets[1].files[0].path, (system_ / "set2").c_str());
}

TEST_F(Admin, ArchivesAreRefused) {
    make_set(2);
    EXPECT_EQ(archive(17, 1, "/x", "l"), 22);
    EXPECT_EQ(said, "vlogadmin: Error! Invalid value for set number, should be in range 1 to 16\n");
    EXPECT_EQ(archive(2, 17, "/x", "l"), 22);
    EXPECT_EQ(said, "vlogadmin: Error! Invalid value for log file number , should be in range 1 to 16\n");
    EXPECT_EQ(archive(2, 1, system_ / "absent", "l"), 2);
    std::ofstream(system_ / "short") << "x";
    EXPECT_EQ(archive(2, 1, system_ / "short", "l"), 22);
    swap(2);
    EXPECT_EQ(archive(2, 1, system_ / "set2", "l"), 22);
    EXPECT_EQ(said, "Error! Attempting to archive the current set\n");
    EXPECT_EQ(config.sets[1].archivedTime, 0);
}

TEST_F(LoggerTest, AnArchiveWithoutAJournalSaysSo) {
    const VAR name("/x");
    EXPECT_EQ(admin([&] { return VELDALoggerSetArchive(dp, 1, 1, &name, &name); }), 22);
    EXPECT_EQ(said, "vlogadmin: Error number 2 reading the logger configuration");
}

// --- import ------------------------------------------------------------------------------------------------------

TEST_F(Admin, FilesAreImportedWithTimesAndCountersOfTheFirst) {
    make_set(6);
    const auto a = block_file("a", FirstBlockMarker, 777), b = block_file("b", BlockMarker, 777);
    std::ofstream(system_ / "c", std::ios::binary) << std::string(4096, '\0');
    std::strcpy(config.sets[5].files[9].path, "/old");
    EXPECT_EQ(import(6, {a, b, system_ / "c"}), 0) << said;
    const LogSetInfo &set = config.sets[5];
    EXPECT_EQ(set.timeFirst, 777);
    EXPECT_EQ(set.recordCount, 33);
    EXPECT_EQ(std::string(set.files[0].path), a);
    EXPECT_EQ(set.files[1].createdTime, 777);
    EXPECT_EQ(set.files[1].maxSize, -1);
    EXPECT_EQ(set.files[2].createdTime, 0) << "a file that was never written";
    for (int n = 3; n < 16; ++n) EXPECT_STREQ(set.files[n].path, "");
    EXPECT_EQ(logged(), "vlogadmin: 3 files imported to log set 6");
}

TEST_F(Admin, FilesThatTheSetHasAlreadyAreNoDuplicates) {
    const auto a = block_file("a", FirstBlockMarker, 777);
    EXPECT_EQ(import(6, {a}), 0) << said;
    EXPECT_EQ(import(6, {a}), 0) << said;
}

TEST_F(Admin, AnImportIntoAJournalThatWasNeverWrittenLetsItBeRead) {
    const auto a = block_file("a", FirstBlockMarker, 777);
    ASSERT_EQ(config.blockSize, 0u);
    EXPECT_EQ(import(6, {a}), 0) << said;
    EXPECT_EQ(config.blockSize, 4096u);
}

TEST_F(Admin, ASecondFileOfAnotherUseOfTheSetIsRefused) {
    const auto a = block_file("a", FirstBlockMarker, 777), b = block_file("b", BlockMarker, 778);
    EXPECT_EQ(import(6, {a, b}), 22);
    EXPECT_EQ(said, "vlogadmin: Error! File " + b + " doesn't appear to be a logger file\n");
    EXPECT_STREQ(config.sets[5].files[0].path, "");
}

TEST_F(Admin, TheFirstFileMustBeginASet) {
    const auto b = block_file("b", BlockMarker, 777);
    EXPECT_EQ(import(6, {b}), 22);
    EXPECT_EQ(said, "vlogadmin: Error! File " + b + " doesn't appear to be the first logger file in the set\n");
}

TEST_F(Admin, ImportsAreRefused) {
    make_set(4);
    swap(4);
    const auto a = block_file("a", FirstBlockMarker, 777);
    EXPECT_EQ(import(17, {a}), 22);
    EXPECT_EQ(import(6, {}), 22);
    EXPECT_EQ(said, "vlogadmin: Error! Invalid value for log file number , should be in range 1 to 16\n");
    EXPECT_EQ(import(4, {a}), 22);
    EXPECT_EQ(said, "vlogadmin: Error! Set 4 is currently active and the files cannot be amended\n");
    EXPECT_EQ(import(6, {"/" + std::string(191, 'n')}), 22);
    EXPECT_EQ(said, "vlogadmin: Error! File name too long , maximum of 191 characters\n");
    EXPECT_EQ(import(6, {system_ / "set4"}), 17);
    EXPECT_EQ(said, "vlogadmin: Error! File name " + (system_ / "set4") + " already exists in file 1 in set 4\n");
    EXPECT_EQ(import(6, {"relative"}), 22);
    EXPECT_EQ(said, "vlogadmin: Error! File name relative MUST be an absolute path name\n");
    EXPECT_EQ(import(6, {system_ / "absent"}), 2);
    EXPECT_EQ(said, "vlogadmin: Error! Unable to open file " + (system_ / "absent") + " , errno number 2\n");
    const auto tiny = block_file("tiny", FirstBlockMarker, 777, 27);
    EXPECT_EQ(import(6, {tiny}), 22);
    EXPECT_EQ(said, "vlogadmin: Error! Unable to read header of file " + tiny + "\n");
}

TEST_F(Admin, AFirstFileShorterThanABlockIsReportedAfterTheFilesAreNamed) {
    const auto a = block_file("a", FirstBlockMarker, 777, 100);
    EXPECT_EQ(import(6, {a}), 22);
    EXPECT_EQ(said, "vlogadmin: Error! Unable to read header of file " + a + "\n");
    EXPECT_EQ(logged(), "");
}

// --- settings ----------------------------------------------------------------------------------------------------

TEST_F(Admin, IntervalsAreStoredAndLoggedWithWhatTheyWere) {
    EXPECT_EQ(VELDALoggerSetSync(dp, 30), 0);
    EXPECT_EQ(VELDALoggerSetCheckp(dp, 5), 0);
    EXPECT_EQ(config.syncSeconds, 30u);
    EXPECT_EQ(config.checkpointMinutes, 5u);
    EXPECT_EQ(logged(),
              "Sync count changed from every 10 seconds to every 30 seconds|"
              "Checkpoint count changed from every 10 minutes to every 5 minutes");
}

TEST_F(Admin, AnIntervalBelowOneChangesAndLogsNothing) {
    const uint32_t count = config.updateCount;
    EXPECT_EQ(VELDALoggerSetSync(dp, 0), 0);
    EXPECT_EQ(VELDALoggerSetCheckp(dp, -3), 0);
    EXPECT_EQ(config.syncSeconds, 10u);
    EXPECT_EQ(config.checkpointMinutes, 10u);
    EXPECT_EQ(config.updateCount, count);
    EXPECT_EQ(logged(), "");
}

TEST_F(Admin, ThresholdsBelowOneStayAndAllThreeAreLogged) {
    EXPECT_EQ(VELDALoggerSetThreshold(dp, 0, 5, 0), 0);
    EXPECT_EQ(logged(),
              "Log file warning threshold set to 70 initial percentage|"
              "     thereafter every additional 5 percent or 300 seconds");
    EXPECT_EQ(config.warnStepPercent, 5u);
    EXPECT_EQ(VELDALoggerSetThreshold(dp, 80, -1, 60), 0);
    EXPECT_EQ(config.warnInitialPercent, 80u);
    EXPECT_EQ(config.warnStepPercent, 5u);
    EXPECT_EQ(config.warnStepSeconds, 60u);
}

TEST_F(Admin, FlagsAreStoredAndLogged) {
    EXPECT_EQ(VELDALoggerSetExtendedRecord(dp, 1), 0);
    EXPECT_EQ(VELDALoggerSetEncryptedRecords(dp, 1), 0);
    EXPECT_EQ(VELDALoggerSetSyncTrans(dp, 0), 0);
    EXPECT_EQ(config.extendedRecords, 1u);
    EXPECT_EQ(config.encryptedRecords, 1u);
    EXPECT_EQ(config.syncTransactions, 0u);
    EXPECT_EQ(logged(),
              "Extended Record Status now set to ON|Encrypted Records Status now set to ON|"
              "Sync Transactions Status now set to OFF");
}

TEST_F(Admin, TheNotifyProgramHas191CharactersAtMost) {
    const VAR program("true " + std::string(300, 'p')), none("");
    EXPECT_EQ(VELDALoggerSetAdminLogNotifyProgram(dp, &program), 0);
    EXPECT_EQ(std::string(config.adminLogNotifyProgram), "true " + std::string(186, 'p'));
    EXPECT_EQ(logged(), "Admin. Log Notify Program now set to 'true " + std::string(186, 'p') + "'");
    EXPECT_EQ(VELDALoggerSetAdminLogNotifyProgram(dp, &none), 0);
    EXPECT_EQ(logged(), "Admin. Log Notify Program REMOVED");
}

TEST_F(Admin, FullFilesAreWarnedOf) {
    EXPECT_EQ(VELDALoggerFileTooFull(dp, 91), 0);
    EXPECT_TRUE(logged().ends_with("severity 257: Journal Log Files now at 91 % capacity"));
}

struct QueueCase {
    int (*set)(DP *, const VAR *);
    const char *set_text;
    const char *removed_text;
};

TEST_F(Admin, EachQueueHasItsNameAndItsTexts) {
    // The two reply queues show the control queue's name, on purpose.
    const QueueCase cases[] = {
        {VELDALoggerSetMQMgr, "MQ Queue Manager now set to 'n0'", "MQ Queue Manager REMOVED"},
        {VELDALoggerSetMQDataQ, "MQ Data Queue now set to 'n1'", "MQ Data Queue REMOVED"},
        {VELDALoggerSetMQCtrlQ, "MQ Control Queue now set to 'n2'", "MQ Control Queue REMOVED"},
        {VELDALoggerSetMQCtrlReplyQ, "MQ Control Queue Reply now set to 'n2'", "MQ Control Reply Queue REMOVED"},
        {VELDALoggerSetMQDataListenQ, "MQ Data Listener Queue now set to 'n4'", "MQ Data Listener Queue REMOVED"},
        {VELDALoggerSetMQSvrMgr, "MQ Server Manager now set to 'n5'", "MQ Server Manager REMOVED"},
        {VELDALoggerSetMQSvrControlQ, "MQ Server Control Queue now set to 'n6'", "MQ Server Control  Queue REMOVED"},
        {VELDALoggerSetMQSvrReplyQ, "MQ Server Reply Queue now set to 'n2'", "MQ Server Reply  Queue REMOVED"},
    };
    for (int n = 0; n < 8; ++n) {
        const VAR name("n" + std::to_string(n));
        EXPECT_EQ(cases[n].set(dp, &name), 0);
        EXPECT_EQ(std::string(config.mqNames[n]), name.str());
        EXPECT_EQ(logged(), cases[n].set_text);
    }
    for (int n = 7; n >= 0; --n) {
        const VAR none("");
        EXPECT_EQ(cases[n].set(dp, &none), 0);
        EXPECT_STREQ(config.mqNames[n], "");
        EXPECT_EQ(logged(), cases[n].removed_text);
    }
}

TEST_F(Admin, AQueueNameHas39CharactersAtMost) {
    const VAR name(std::string(60, 'q'));
    for (const auto set : {VELDALoggerSetMQMgr, VELDALoggerSetMQDataQ}) EXPECT_EQ(set(dp, &name), 0);
    EXPECT_EQ(std::string(config.mqNames[0], 40), std::string(39, 'q') + '\0');
    EXPECT_EQ(std::string(config.mqNames[1], 40), std::string(39, 'q') + '\0');
}

TEST_F(Admin, OnlyTheDataQueueLeavesTheLastByteAlone) {
    for (auto &name : config.mqNames) name[39] = 'z';
    const VAR name("q");
    VELDALoggerSetMQMgr(dp, &name);
    VELDALoggerSetMQDataQ(dp, &name);
    EXPECT_EQ(config.mqNames[0][39], 0);
    EXPECT_EQ(config.mqNames[1][39], 'z');
}

TEST_F(LoggerTest, AQueueWithoutAJournalIsPassedOver) {
    const VAR name("q");
    EXPECT_EQ(VELDALoggerSetMQMgr(dp, &name), 0);
    EXPECT_FALSE(std::filesystem::exists(system_ / "config"));
}

// --- password ----------------------------------------------------------------------------------------------------

namespace {

std::string answer_to_password(const std::string &answer) {
    return velda::test::run_on_pipes(answer + "\n",
                                     [](DP *session) {
                                         VELDAprintf(session, "[%s]\n",
                                                     VELDALoggerTestPassword(session) == 0 ? "right" : "wrong");
                                     })
        .output;
}

}  // namespace

TEST_F(Admin, APasswordIsEncipheredInPlaceAndTested) {
    for (const std::string password : {"x", "secret", "12345678", "exactly-23-bytes-long-x"}) {
        VAR cell(password);
        ASSERT_EQ(admin([&] { return VELDALoggerSetPassword(dp, &cell); }), 0) << said;
        EXPECT_NE(cell.str(), password);
        EXPECT_EQ(std::string(config.password, cell.size()), cell.str());
        EXPECT_EQ(logged(), "Log password changed");
        EXPECT_EQ(answer_to_password(password), "Please Enter Journal Password      \n[right]\n");
        EXPECT_EQ(answer_to_password(password + "!"), "Please Enter Journal Password      \n[wrong]\n");
    }
}

TEST_F(Admin, AnEmptyPasswordRemovesIt) {
    VAR cell("secret"), none("");
    VELDALoggerSetPassword(dp, &cell);
    EXPECT_EQ(VELDALoggerSetPassword(dp, &none), 0);
    EXPECT_EQ(config.password[0], 0);
}

TEST_F(Admin, APasswordThatIsTooLongIsRefusedAndTheOldOneStays) {
    VAR cell("secret");
    VELDALoggerSetPassword(dp, &cell);
    const std::string before(config.password, 32);
    VAR long_one(std::string(24, 'p'));
    EXPECT_EQ(admin([&] { return VELDALoggerSetPassword(dp, &long_one); }), 22);
    EXPECT_EQ(said, "vlogadmin: Error! Password too long\n");
    EXPECT_EQ(std::string(config.password, 32), before);
}

TEST_F(LoggerTest, PasswordsWithoutAJournalGiveMinusOne) {
    VAR cell("secret");
    EXPECT_EQ(VELDALoggerSetPassword(dp, &cell), -1);
    EXPECT_EQ(VELDALoggerTestPassword(dp), -1);
}

// --- stopping a duplicator -----------------------------------------------------------------------------------------

TEST_F(Admin, AProcessWithoutASlotIsNoDuplicator) {
    EXPECT_EQ(admin([&] { return VELDALoggerDupKill(dp, 999999); }), 0);
    EXPECT_EQ(said, "Error! Process id 999999 is not an active vlogdup process\n");
    EXPECT_EQ(admin([&] { return VELDALoggerDupKill(dp, 0); }), 0);
    EXPECT_EQ(said, "Error! Process id 0 is not an active vlogdup process\n") << "a free slot is nobody's";
}

TEST_F(Admin, ADuplicatorIsToldWhoStopsItAndInterrupted) {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGINT, SIG_DFL);
        while (true) pause();
    }
    config.dupSlots[4].pid = static_cast<uint32_t>(child);
    usleep(50000);
    EXPECT_EQ(admin([&] { return VELDALoggerDupKill(dp, child); }), 0);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);
    EXPECT_EQ(config.dupSlots[4].killerPid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(config.dupSlots[4].killerPort, static_cast<uint32_t>(VELDAGetPortNumber(dp)));
    EXPECT_EQ(logged(), "Kill initiated on vlogdup process id " + std::to_string(child) + " : Process id " +
                            std::to_string(getpid()) + " from port " + std::to_string(VELDAGetPortNumber(dp)));
}
