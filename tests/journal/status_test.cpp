// Configuration, reports and duplicator slots.
#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <vector>

#include "runtime/journal/log_format.h"
#include "tests/journal/fixture.h"

using velda::test::LoggerTest;

static int space_queries = 0;
static bool space_is_unknown = false;

// Stands before the runtime's own entry, counts, and calls it.
extern "C" VELDA_EXPORT int VediBaseCheckFileSizePath(DP *dp, const char *path, uint64_t *total, uint64_t *available) {
    ++space_queries;
    static const auto real =
        reinterpret_cast<decltype(&VediBaseCheckFileSizePath)>(dlsym(RTLD_NEXT, "VediBaseCheckFileSizePath"));
    const int error = real(dp, path, total, available);
    if (space_is_unknown) *total = *available = 0;
    return error;
}

namespace {

class Definition : public LoggerTest {};

class Status : public LoggerTest {
  protected:
    Status() : config(defined()) {}
    VAR status(int set) {
        VAR report;
        VELDALoggerGetStatus(&report, dp, set);
        return report;
    }
    VAR statistics() {
        VAR report;
        VELDALoggerStatistics(&report, dp);
        return report;
    }
    static std::string at(const VAR &report, int attribute, int value = 0) {
        return VAR(report(attribute, value)).str();
    }
    void name_file(int set, int file, const std::string &path, int64_t max_size = -1) {
        LogFileEntry &entry = config.sets[set - 1].files[file - 1];
        std::ofstream(path).flush();
        std::strncpy(entry.path, path.c_str(), 191);
        entry.createdTime = 1000 + file;
        entry.maxSize = max_size;
    }
    VELDALoggerConfig &config;
};

class SetStats : public Status {
  protected:
    std::string log_file(const LogSetInfo &info, std::size_t size = 4096) {
        std::string block(4096, '\0');
        block.replace(0, 8, velda::journal::FirstBlockMarker);
        std::memcpy(block.data() + 16, &info, sizeof info);
        const std::string path = system_ / "lone";
        std::ofstream(path, std::ios::binary) << block.substr(0, size);
        return path;
    }
    int stats(const std::string &path) {
        const VAR name(path);
        return admin([&] { return VELDAGetSetStats(dp, &name, &report); });
    }
    VAR report = "old";
};

// A process that runs a body, tells so, and lives until it is killed.
class Duplicator {
  public:
    explicit Duplicator(const std::function<bool(DP *)> &body) {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        process = fork();
        if (process == 0) {
            const char result = body(velda_getdp()) ? 'y' : 'n';
            if (write(ready[1], &result, 1) != 1) _exit(1);
            while (true) pause();
        }
        char result = '?';
        EXPECT_EQ(read(ready[0], &result, 1), 1);
        succeeded = result == 'y';
        close(ready[0]);
        close(ready[1]);
    }
    ~Duplicator() { end(); }
    void end() {
        if (process <= 0) return;
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
        process = -1;
    }
    Duplicator(const Duplicator &) = delete;
    Duplicator &operator=(const Duplicator &) = delete;

    pid_t process;
    bool succeeded = false;
};

bool allocate(DP *session) { return VELDALoggerStatusAllocate(session) != nullptr; }

class Slots : public Status {
  protected:
    int used() const {
        int count = 0;
        for (const DupStatusSlot &slot : config.dupSlots) count += slot.pid != 0;
        return count;
    }
    VAR read_slots() {
        VAR report;
        EXPECT_EQ(VELDALoggerStatusRead(dp, &report), 0);
        return report;
    }
};

}  // namespace

TEST_F(Definition, TheFirstCallMakesTheThreeFilesBelowTheGlobalDirectory) {
    defined();
    EXPECT_EQ(std::filesystem::file_size(system_ / "config/vediLoggerConfig"), 79464u);
    EXPECT_EQ(std::filesystem::file_size(system_ / "config/vediLoggerAdminLog"), 0u);
    EXPECT_TRUE(std::filesystem::exists(system_ / "config/vediLoggerTransLock"));
}

TEST_F(Definition, AnyoneMayUseTheFiles) {
    const mode_t before = umask(0);
    defined();
    umask(before);
    for (const char *const name : {"config/vediLoggerConfig", "config/vediLoggerTransLock"})
        EXPECT_EQ(std::filesystem::status(system_ / name).permissions(), std::filesystem::perms(0666)) << name;
}

TEST_F(Definition, TheAdministrationLogBeginsEmpty) {
    std::filesystem::create_directory(system_ / "config");
    std::ofstream(system_ / "config/vediLoggerAdminLog") << "of a configuration before\n";
    defined();
    EXPECT_EQ(content(system_ / "config/vediLoggerAdminLog"), "");
}

TEST_F(Definition, WithoutItsLockFileTheCommandEnds) {
    std::filesystem::create_directories(system_ / "config/vediLoggerTransLock");
    EXPECT_EQ(admin([&] { return VELDALoggerGetDefinition(dp); }), -99) << "it did not return";
    EXPECT_EQ(exit_code, 1);
    EXPECT_EQ(said, "Transaction Lock File Init: Is a directory\n");
}

TEST_F(Definition, WhatCannotBeWrittenWholeIsTakenBack) {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{40'000, 40'000};
        setrlimit(RLIMIT_FSIZE, &limit);
        const bool returned = admin([&] { return VELDALoggerGetDefinition(dp); }) != -99;
        _exit(!returned && exit_code == 1 && said.starts_with((system_ / "config/vediLoggerConfig: File too large"))
                  ? 0
                  : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(std::filesystem::exists(system_ / "config/vediLoggerConfig"));
    EXPECT_EQ(VELDALoggerGetDefinition(dp), 0) << "there is room again";
    EXPECT_NE(VediLoggerInit(dp, 1), VELDA_LOGGER_NOT_MAPPED);
}

TEST_F(Definition, InADirectoryThatMayNotBeWrittenTheCommandEnds) {
    std::filesystem::create_directory(system_ / "config");
    std::filesystem::permissions(system_ / "config", std::filesystem::perms(0555));
    std::filesystem::permissions(system_.path(), std::filesystem::perms(0755));
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(2);
        const bool returned = admin([&] { return VELDALoggerGetDefinition(dp); }) != -99;
        _exit(!returned && exit_code == 1 && said == "Transaction Lock File Init: Permission denied\n" ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(std::filesystem::is_empty(system_ / "config"));
    std::filesystem::permissions(system_ / "config", std::filesystem::perms(0755));
}

TEST_F(Definition, TheFilesLieBelowTheDirectoryThatTheEnvironmentNames) {
    std::filesystem::create_directory(system_ / "other");
    setenv("VBCLOGCONFDIR", (system_ / "other").c_str(), 1);
    const auto &config = defined();
    EXPECT_EQ(std::string(config.configPath), system_ / "other/config/vediLoggerConfig");
    EXPECT_TRUE(std::filesystem::exists(system_ / "other/config/vediLoggerTransLock"));
    unsetenv("VBCLOGCONFDIR");
}

TEST_F(Definition, ANewRecordHasItsDefaults) {
    const auto now = static_cast<uint64_t>(time(nullptr));
    const auto &config = defined();
    const std::string user = velda::system_number(1015).str();
    EXPECT_EQ(std::string(config.magic, 8), "VBC__LOG");
    EXPECT_EQ(std::string(config.configPath), system_ / "config/vediLoggerConfig");
    EXPECT_EQ(std::string(config.adminLogPath), system_ / "config/vediLoggerAdminLog");
    EXPECT_STREQ(config.adminLogNotifyProgram, "");
    EXPECT_EQ(config.recordSize, 79464u);
    EXPECT_EQ(config.formatVersion, 3u);
    EXPECT_EQ(config.blockSize, 0u);
    EXPECT_EQ(config.byteOrderMark, 0x12345678u);
    EXPECT_EQ(config.updateCount, 1u);
    EXPECT_NEAR(static_cast<double>(config.createdTime), static_cast<double>(now), 2);
    EXPECT_EQ(config.createdPort, static_cast<uint32_t>(VELDAGetPortNumber(dp)));
    EXPECT_EQ(std::string(config.createdUser), user);
    EXPECT_EQ(config.updatedTime, ~uint64_t{0});
    EXPECT_EQ(config.updatedPort, 0u);
    EXPECT_STREQ(config.updatedUser, "");
    EXPECT_EQ(config.status, 0u);
    EXPECT_EQ(config.warnInitialPercent, 70u);
    EXPECT_EQ(config.warnStepPercent, 1u);
    EXPECT_EQ(config.warnStepSeconds, 300u);
    EXPECT_EQ(config.syncSeconds, 10u);
    EXPECT_EQ(config.currentSet, 0u);
    EXPECT_EQ(config.switchedTime, config.createdTime);
    EXPECT_EQ(config.switchedPort, config.createdPort);
    EXPECT_EQ(std::string(config.switchedUser), user);
    EXPECT_EQ(config.activatedTime, static_cast<uint32_t>(config.createdTime));
    EXPECT_EQ(config.checkpointMinutes, 10u);
    EXPECT_EQ(config.extendedRecords, 0u);
    EXPECT_EQ(config.reportField32, 0u);
    EXPECT_EQ(config.encryptedRecords, 0u);
    EXPECT_EQ(config.syncTransactions, 1u);
    EXPECT_EQ(config.lastCheckpoint, -1);
    EXPECT_EQ(config.password[0], 0);
    const auto *const bytes = reinterpret_cast<const char *>(&config);
    EXPECT_EQ(std::string(bytes + 980, 79464 - 980), std::string(79464 - 980, '\0')) << "slots, names, sets";
}

TEST_F(Definition, AnExistingConfigurationIsKept) {
    defined().syncSeconds = 44;
    const velda::test::ScratchSession other;
    EXPECT_EQ(VELDALoggerGetDefinition(other), 0);
    EXPECT_EQ(VediLoggerInit(other, 1)->syncSeconds, 44u);
}

TEST_F(Definition, OfManyProcessesOneMakesTheConfiguration) {
    pid_t children[6];
    for (pid_t &child : children) {
        child = fork();
        if (child != 0) continue;
        DP *const session = velda_getdp();
        VELDALoggerGetDefinition(session);
        __atomic_add_fetch(&VediLoggerInit(session, 1)->reportField32, 1, __ATOMIC_SEQ_CST);
        _exit(0);
    }
    for (const pid_t child : children) {
        int status = 1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(VediLoggerInit(dp, 1)->reportField32, 6u) << "nobody's change was overwritten";
}

TEST_F(Definition, ADamagedConfigurationEndsTheCommand) {
    std::filesystem::create_directory(system_ / "config");
    std::ofstream(system_ / "config/vediLoggerConfig") << std::string(79464, 'x');
    EXPECT_EQ(admin([&] { return VELDALoggerGetDefinition(dp); }), -99) << "it did not return";
    EXPECT_EQ(exit_code, 1);
    EXPECT_NE(said.find("Logger Init"), std::string::npos);
    EXPECT_NE(said.find("does not begin with VBC__LOG"), std::string::npos);
}

TEST_F(Definition, ADamagedConfigurationIsPassedOverWithSeveralApplications) {
    std::filesystem::create_directory(system_ / "config");
    std::ofstream(system_ / "config/vediLoggerConfig") << std::string(79464, 'x');
    setenv("MULTIAPP", "1", 1);
    EXPECT_EQ(admin([&] { return VELDALoggerGetDefinition(dp); }), 0);
    EXPECT_EQ(said, "");
    unsetenv("MULTIAPP");
}

TEST_F(LoggerTest, AJournalThatCannotBeMappedGivesTheFailureReport) {
    VAR report = "old";
    EXPECT_EQ(VELDALoggerGetStatus(&report, dp, 1), &report);
    EXPECT_EQ(shown(report.view()), "-1^Error number 2 reading the logger configuration");
    VELDALoggerStatistics(&report, dp);
    EXPECT_EQ(shown(report.view()), "-1^Error number 2 reading the logger configuration");
    const VAR name("/x");
    EXPECT_EQ(VELDAGetSetStats(dp, &name, &report), 1);
    EXPECT_EQ(shown(report.view()), "-1^Error number 2 reading the logger configuration");
}

TEST_F(Status, SeventeenIsNoSetAndSixteenIs) {
    EXPECT_EQ(shown(status(17).view()), "-1^Set number 17 is invalid (should be in range 1 to 16)");
    EXPECT_EQ(at(status(16), 1), "16");
}

TEST_F(Status, ANegativeNumberMeansTheCurrentSet) {
    config.currentSet = 5;
    EXPECT_EQ(at(status(-1), 1), "5");
}

TEST_F(Status, WithoutACurrentSetTheReportIsThatOfAnEmptySet) {
    const VAR report = status(-1);
    EXPECT_EQ(at(report, 1), "0");
    EXPECT_EQ(at(report, 2), "0");
    EXPECT_EQ(at(report, 7), "0");
    EXPECT_EQ(at(statistics(), 1), "0");
}

TEST_F(Status, EveryFieldHasItsAttribute) {
    LogSetInfo &set = config.sets[2];
    set.timeFirst = 36000, set.timeLast = 37000, set.archivedTime = 38000, set.recordCount = 8000;
    std::strcpy(set.archiveLocation, "vault");
    config.updateCount = 9, config.status = 2;
    config.createdTime = 12, config.createdPort = 13, std::strcpy(config.createdUser, "u14");
    config.updatedTime = 15, config.updatedPort = 16, std::strcpy(config.updatedUser, "u17");
    config.switchedTime = 18, config.switchedPort = 19, std::strcpy(config.switchedUser, "u20");
    config.currentSet = 7, config.syncSeconds = 23, config.activatedTime = 24, config.extendedRecords = 25;
    std::strcpy(config.adminLogNotifyProgram, "p31");
    config.reportField32 = 32, config.warnInitialPercent = 33, config.warnStepPercent = 34, config.warnStepSeconds = 35;
    config.checkpointMinutes = 40, config.lastCheckpoint = 41, config.encryptedRecords = 42;
    config.syncTransactions = 43;
    const uint32_t words[] = {1, 2, 44, 45, 46000};
    std::memcpy(config.statistics, words, sizeof words);
    for (int queue = 0; queue < 8; ++queue) std::strcpy(config.mqNames[queue], ("q" + std::to_string(queue)).c_str());
    const VAR report = status(3);
    const std::string config_path = system_ / "config/vediLoggerConfig", log = system_ / "config/vediLoggerAdminLog";
    const std::string expected =
        "3^0^^^^^0^8000^9^" + config_path + "^2^12^13^u14^15^16^u17^18^19^u20^^7^23^24^25^^^^^" + log +
        "^p31^32^33^34^35^36000^37000^38000^vault^40^41^42^43^44^45^46000^516^" + "q0^q1^q2^q3^q4^q5^q6^q7";
    EXPECT_EQ(shown(report.view()), expected);
}

TEST_F(Status, TheQuotientIsLeftOutWithoutADividendOrADivisor) {
    config.statistics[2] = 4;
    EXPECT_EQ(at(status(1), 47), "");
    config.statistics[2] = 0, config.statistics[4] = 9;
    EXPECT_EQ(at(status(1), 47), "");
    EXPECT_EQ(at(statistics(), 17), "");
}

TEST_F(Status, ASetWithoutALastTimeReportsThePresentTime) {
    const auto now = static_cast<double>(time(nullptr));
    EXPECT_NEAR(std::stod(at(status(1), 37)), now, 2);
    EXPECT_NEAR(std::stod(at(statistics(), 13)), now, 2);
}

TEST_F(Status, NamedFilesHavePathPercentageTimeAndLimit) {
    name_file(1, 1, system_ / "a", 16384);
    name_file(1, 3, system_ / "b", 32768);
    config.blockSize = 4096;
    config.sets[0].fileOffset = 4096;
    const VAR report = status(1);
    EXPECT_EQ(at(report, 2), "2");
    EXPECT_EQ(shown(at(report, 3)), system_ / "a" + "]" + (system_ / "b"));
    EXPECT_EQ(shown(at(report, 4)), "50.00]25.00");
    EXPECT_EQ(shown(at(report, 5)), "1001]1003");
    EXPECT_EQ(shown(at(report, 6)), "16384]32768");
}

TEST_F(Status, AFileWithoutALimitIsAsFullAsItsDevice) {
    name_file(1, 1, system_ / "a");
    uint64_t total = 0, available = 0;
    ASSERT_EQ(VediBaseCheckFileSizePath(dp, (system_ / "a").c_str(), &total, &available), 0);
    const double expected = static_cast<double>(total - available) / static_cast<double>(total) * 100;
    EXPECT_NEAR(std::stod(at(status(1), 4)), expected, 1);
}

TEST_F(Status, FilesOfOneDeviceCauseOneSpaceQuery) {
    name_file(1, 1, system_ / "a");
    name_file(1, 2, system_ / "b");
    space_queries = 0;
    const VAR report = status(1);
    EXPECT_EQ(space_queries, 1);
    EXPECT_EQ(at(report, 4, 1), at(report, 4, 2));
    EXPECT_NE(at(report, 4, 1), "");
    status(1);
    EXPECT_EQ(space_queries, 2) << "each report asks anew";
}

TEST_F(Status, AFileThatCannotBeOpenedHasOnlyItsPath) {
    name_file(1, 1, system_ / "a");
    std::filesystem::remove(system_ / "a");
    const VAR report = status(1);
    EXPECT_EQ(at(report, 2), "1");
    EXPECT_EQ(at(report, 3), system_ / "a");
    EXPECT_EQ(at(report, 4) + at(report, 5) + at(report, 6), "");
}

TEST_F(Status, ADeviceOfUnknownSpaceIsAtZero) {
    name_file(1, 1, system_ / "a");
    space_is_unknown = true;
    EXPECT_EQ(at(status(1), 4), "0");
    space_is_unknown = false;
}

TEST_F(Status, BeforeTheFirstSaveItsTimeIsMinusOne) { EXPECT_EQ(at(status(1), 15), "-1"); }

TEST_F(Status, TheSizeFollowsFromTheStriping) {
    name_file(1, 1, system_ / "a");
    name_file(1, 2, system_ / "b");
    LogSetInfo &set = config.sets[0];
    config.blockSize = 4096;
    set.fileOffset = 8192, set.currentFile = 2, set.blockPosition = 100;
    EXPECT_EQ(at(status(1), 7), "20580");
    set.currentFile = 0;
    EXPECT_EQ(at(status(1), 7), "16484");
}

TEST_F(Status, TheShortReportIsOfTheCurrentSet) {
    name_file(2, 1, system_ / "a", 8192);
    LogSetInfo &set = config.sets[1];
    set.timeFirst = 12, set.timeLast = 13, set.recordCount = 5, set.fileOffset = 0, set.blockPosition = 4;
    config.blockSize = 4096, config.currentSet = 2, config.status = 1, config.updatedTime = 7, config.switchedTime = 8;
    config.activatedTime = 10, config.lastCheckpoint = 11;
    const uint32_t words[] = {0, 0, 1, 2, 9};
    std::memcpy(config.statistics, words, sizeof words);
    EXPECT_EQ(shown(statistics().view()), "2^^50.00^4^5^1^7^8^2^10^11^12^13^1^2^9^3");
}

TEST_F(Status, ASetIsCheckedForRecords) {
    config.sets[3].recordCount = 1;
    EXPECT_EQ(VELDALoggerCheckSetFile(dp, 4), 1);
    EXPECT_EQ(VELDALoggerCheckSetFile(dp, 5), 0);
    EXPECT_EQ(VELDALoggerCheckSetFile(dp, 0), 2);
    EXPECT_EQ(VELDALoggerCheckSetFile(dp, 17), 2);
}

TEST_F(SetStats, ReportAFileThatIsNotConfigured) {
    LogSetInfo info = {};
    info.timeFirst = 100, info.timeLast = 200, info.recordCount = 7, info.fileOffset = 0x100000001;
    info.blockPosition = 5;
    std::strcpy(info.files[0].path, "/log/a");
    std::strcpy(info.archiveLocation, "vault");
    EXPECT_EQ(stats(log_file(info)), 0);
    EXPECT_EQ(shown(report.view()), "100^200^1^7^4294967302^/log/a^1^vault");
}

TEST_F(SetStats, ASetWithoutALastTimeHasThePresentOne) {
    LogSetInfo info = {};
    info.timeFirst = 100;
    EXPECT_EQ(stats(log_file(info)), 0);
    EXPECT_NEAR(std::stod(at(report, 2)), static_cast<double>(time(nullptr)), 2);
}

TEST_F(SetStats, EachNamedFileIsAValueAndCountsInTheSize) {
    config.blockSize = 4096;
    LogSetInfo info = {};
    info.fileOffset = 8192, info.currentFile = 2, info.blockPosition = 100;
    std::strcpy(info.files[0].path, "/log/a");
    std::strcpy(info.files[4].path, "/log/b");
    EXPECT_EQ(stats(log_file(info)), 0);
    EXPECT_EQ(at(report, 3), "2");
    EXPECT_EQ(at(report, 5), "20580");
    EXPECT_EQ(shown(at(report, 6)), "/log/a]/log/b");
}

TEST_F(SetStats, AMissingFileGivesOneSilently) {
    EXPECT_EQ(stats(system_ / "absent"), 1);
    EXPECT_EQ(said, "");
    EXPECT_EQ(report.str(), "");
}

TEST_F(SetStats, AFileThatCannotBeOpenedGivesOneWithAWarning) {
    EXPECT_EQ(stats(system_.path()), 1);
    EXPECT_TRUE(said.starts_with("Warning: ")) << said;
}

TEST_F(SetStats, AShortFileIsInvalid) {
    EXPECT_EQ(stats(log_file({}, 4095)), 22);
    EXPECT_EQ(report.str(), "");
}

TEST_F(SetStats, AFileWithoutTheMarkerGivesOneAndAnEmptyResult) {
    std::ofstream(system_ / "lone", std::ios::binary) << std::string(4096, 'x');
    EXPECT_EQ(stats(system_ / "lone"), 1);
    EXPECT_EQ(report.str(), "");
}

TEST_F(Slots, ASlotIsTheCallersUntilItIsDeleted) {
    DupStatusSlot *const slot = VELDALoggerStatusAllocate(dp);
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(slot->pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(slot->port, static_cast<uint32_t>(VELDAGetPortNumber(dp)));
    EXPECT_EQ(VELDALoggerStatusAllocate(dp), slot) << "a second call gives the same";
    EXPECT_EQ(VELDALoggerStatusDelete(dp), 0);
    EXPECT_EQ(used(), 0);
}

TEST_F(Slots, EverySlotOfTheCallerIsDeleted) {
    VELDALoggerStatusAllocate(dp);
    config.dupSlots[5].pid = static_cast<uint32_t>(getpid());
    config.dupSlots[5].outputErrors = 3;
    config.dupSlots[6].pid = 1;
    EXPECT_EQ(VELDALoggerStatusDelete(dp), 0);
    EXPECT_EQ(used(), 1);
    EXPECT_EQ(config.dupSlots[5].outputErrors, 0u);
}

TEST_F(LoggerTest, WithoutAJournalThereAreNoSlots) {
    VAR report = "old";
    EXPECT_EQ(VELDALoggerStatusAllocate(dp), nullptr);
    EXPECT_EQ(VELDALoggerStatusDelete(dp), 0);
    EXPECT_EQ(VELDALoggerStatusRead(dp, &report), 0);
    EXPECT_EQ(report.str(), "");
    EXPECT_EQ(VELDALoggerStatusCountDatabase(dp), 0);
    EXPECT_EQ(VELDALoggerCheckSetFile(dp, 1), 0);
    EXPECT_FALSE(std::filesystem::exists(system_ / "config"));
}

// The number of a process comes again, soon so in a container.
TEST_F(Slots, ASlotOfADeadProcessThatHadTheCallersNumberIsNotTheCallers) {
    DupStatusSlot &left = config.dupSlots[0];
    left.pid = static_cast<uint32_t>(getpid()), left.killerPid = 7, left.inputRecords = 99;
    const DupStatusSlot *const slot = VELDALoggerStatusAllocate(dp);
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(slot->killerPid, 0u);
    EXPECT_EQ(slot->inputRecords, 0u);
    EXPECT_EQ(used(), 1);
    const Duplicator other([](DP *session) {
        VAR report;
        VELDALoggerStatusRead(session, &report);
        return !report.empty();
    });
    EXPECT_TRUE(other.succeeded) << "its lock is held";
}

TEST_F(Slots, AfterADeleteTheOwnersLockIsStillHeld) {
    VELDALoggerStatusAllocate(dp);
    VELDALoggerStatusDelete(dp);
    const std::string key = "vlogdup*" + std::to_string(getpid());
    const std::string path = config.configPath;
    const Duplicator other([&](DP *session) {
        VRunFile *const file = VRunFileIOOpen(session, path.c_str(), VELDA_OPEN_READ_WRITE, 0);
        return VRunFileIOLockRecord(session, file, key.data(), key.size(), 2) == EWOULDBLOCK;
    });
    EXPECT_TRUE(other.succeeded);
}

TEST_F(Slots, ADeadOwnersSlotIsClearedByAReadAndNotByACount) {
    Duplicator other([](DP *session) {
        DupStatusSlot *const slot = VELDALoggerStatusAllocate(session);
        slot->outputDevice = 8;
        return true;
    });
    EXPECT_EQ(used(), 1);
    EXPECT_EQ(velda::dcount(VAR(read_slots()(1)), velda::VM), 1) << "it lives";
    other.end();
    EXPECT_EQ(VELDALoggerStatusCountDatabase(dp), 1);
    EXPECT_EQ(used(), 1);
    EXPECT_EQ(read_slots().str(), "");
    EXPECT_EQ(used(), 0);
}

TEST_F(Slots, ADeadOwnersSlotIsClearedByAnAllocate) {
    Duplicator other(allocate);
    other.end();
    ASSERT_TRUE(allocate(dp));
    EXPECT_EQ(used(), 1);
}

TEST_F(Slots, ANinthLivingDuplicatorIsRefused) {
    std::vector<std::unique_ptr<Duplicator>> eight;
    for (int n = 0; n < 8; ++n) eight.push_back(std::make_unique<Duplicator>(allocate));
    for (const auto &one : eight) EXPECT_TRUE(one->succeeded);
    int error = 0;
    EXPECT_EQ(admin([&] {
                  const bool got = allocate(dp);
                  error = errno;
                  return got;
              }),
              0);
    EXPECT_EQ(error, 2);
    EXPECT_EQ(said, "Error! No free slots, all 8 entries taken\n");
    eight.pop_back();
    EXPECT_TRUE(allocate(dp)) << "a place came free";
}

TEST_F(Slots, EachFieldOfASlotHasItsAttribute) {
    DupStatusSlot &slot = *VELDALoggerStatusAllocate(dp);
    const std::string pid = std::to_string(slot.pid), port = std::to_string(slot.port);
    slot.startTime = 2, std::strcpy(slot.statusText, "READING");
    std::strcpy(slot.inputSpec, "set=1"), slot.inputDevice = 11, slot.inputRecords = 12, slot.inputBlocks = 13;
    slot.inputBytes = 14, slot.inputErrors = 15;
    std::strcpy(slot.outputSpec, "set=database"), slot.outputDevice = 21, slot.outputRecords = 1ull << 40;
    slot.outputBlocks = 23, slot.outputBytes = 24, slot.outputErrors = 25;
    EXPECT_EQ(shown(read_slots().view()), pid + "^2^" + port +
                                              "^READING^^^^^^set=1^11^12^13^14^15^^^^^set=database^21^1099511627776^23^"
                                              "24^25");
}

TEST_F(Slots, TheSlotsInUseAreCountedFromOne) {
    Duplicator first(allocate);
    const Duplicator second(allocate);
    first.end();
    VELDALoggerStatusAllocate(dp);  // takes the place of the first
    VELDALoggerStatusDelete(dp);
    const VAR report = read_slots();
    EXPECT_EQ(at(report, 1), std::to_string(second.process));
    EXPECT_EQ(at(report, 1, 1), std::to_string(second.process)) << "though it is in the second slot";
}

TEST_F(Slots, OnlyDuplicatorsThatWriteToTheDatabaseAreCounted) {
    config.dupSlots[1].pid = 5, config.dupSlots[1].outputDevice = 8;
    config.dupSlots[2].pid = 6, config.dupSlots[2].outputDevice = 7;
    config.dupSlots[3].outputDevice = 8;
    EXPECT_EQ(VELDALoggerStatusCountDatabase(dp), 1);
}

TEST_F(Slots, NoLivingOwnersSlotIsClearedWhileManyTakeAndReadSlots) {
    constexpr int Processes = 6, Rounds = 60;
    pid_t children[Processes];
    for (pid_t &child : children) {
        child = fork();
        if (child != 0) continue;
        DP *const session = velda_getdp();
        int lost = 0;
        for (int round = 0; round < Rounds; ++round) {
            const DupStatusSlot *const slot = VELDALoggerStatusAllocate(session);
            VAR report;
            VELDALoggerStatusRead(session, &report);
            lost += !slot || slot->pid != static_cast<uint32_t>(getpid());
            if (round % 2) VELDALoggerStatusDelete(session);
        }
        _exit(lost);
    }
    for (const pid_t child : children) {
        int status = 1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    read_slots();
    EXPECT_EQ(used(), 0) << "all owners are dead";
}
