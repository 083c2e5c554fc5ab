#include <grp.h>
#include <pwd.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "tests/runtime/process/command_fixture.h"

using velda::test::CommandTest;
using velda::test::ScratchDirectory;

namespace {

class Environment : public CommandTest {
  protected:
    void TearDown() override { unsetenv("VELDATEST"); }
};

class SystemLog : public CommandTest {
  protected:
    int log(const std::string &text) {
        return VELDAWriteLogFile(dp, VELDA_SYSTEM_LOG, 0, 0, text.data(), static_cast<int>(text.size()));
    }
    static std::vector<std::string> lines() {
        std::ifstream file(std::string(getenv("VELDAGLOBALDIR")) + "/log/system.log");
        std::vector<std::string> all;
        for (std::string line; std::getline(file, line);) all.push_back(line);
        return all;
    }

  private:
    velda::test::ScratchSystem own_log_;
};

TEST_F(SystemLog, AMessageIsALineOfTheLog) {
    ASSERT_EQ(NTLogMessage(dp, "a message"), 0);
    ASSERT_FALSE(lines().empty());
    EXPECT_TRUE(lines().back().ends_with(": a message")) << lines().back();
}

TEST_F(Environment, TheTimesOfTheProcessGrowWithItsWork) {
    double user_before = -1, system_before = -1, user = -1, system = -1;
    velda_process_times(dp, &user_before, &system_before);
    EXPECT_GE(user_before, 0);
    EXPECT_GE(system_before, 0);
    do {
        velda_process_times(dp, &user, &system);
    } while (user + system <= user_before + system_before);
    EXPECT_LT(user + system, user_before + system_before + 60);
}

TEST_F(Environment, TheLimitOfOpenFilesIsRaisedAsFarAsTheSystemAllows) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit limit = before;
    limit.rlim_cur = 128;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(velda_allow_open_files(dp, 200), 200);
    EXPECT_EQ(velda_allow_open_files(dp, 150), 200);  // never lowered
    const auto most = static_cast<int64_t>(std::min<rlim_t>(before.rlim_max, 1U << 30));
    EXPECT_EQ(velda_allow_open_files(dp, int64_t{1} << 30), most);
    setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace

TEST_F(Environment, AnUnsetVariableIsEmptyAndGivesZero) {
    VAR name("VELDATEST"), value("before");
    EXPECT_EQ(VLibEGETENV_IBB(dp, &name, &value), 0);
    EXPECT_EQ(value.view(), "");
    EXPECT_EQ(VELDAgetenv(dp, "VELDATEST"), nullptr);
    EXPECT_EQ(velda::environment("VELDATEST").view(), "");
}
TEST_F(Environment, AVariableIsSetByNameAndValue) {
    EXPECT_TRUE(velda::set_environment("VELDATEST=a=b"));
    VAR name("VELDATEST"), value;
    EXPECT_EQ(VLibEGETENV_IBB(dp, &name, &value), 1);
    EXPECT_EQ(value.view(), "a=b");
    EXPECT_EQ(VLibEGETENV_BBB(dp, &value, &name), &value);
    EXPECT_STREQ(VELDAgetenv(dp, "VELDATEST"), "a=b");
}
TEST_F(Environment, AnEmptyValueIsSet) {
    EXPECT_EQ(VELDAputenv(dp, "VELDATEST="), 0);
    EXPECT_STREQ(VELDAgetenv(dp, "VELDATEST"), "");
}
TEST_F(Environment, ATextWithoutNameOrEqualsSignIsRefused) {
    EXPECT_FALSE(velda::set_environment("VELDATEST"));
    EXPECT_FALSE(velda::set_environment("=x"));
    EXPECT_EQ(VELDAputenv(dp, "VELDATEST"), 22);
}
TEST_F(Environment, StartedProgramsSeeIt) {
    velda::set_environment("VELDATEST=seen");
    VAR captured;
    velda::execute("\xFFkecho $VELDATEST", nullptr, &captured);
    EXPECT_EQ(captured.view(), "seen");
}
TEST_F(Environment, TheCurrentDirectoryIsAbsolute) {
    EXPECT_EQ(velda::current_directory().str(), std::filesystem::current_path().string());
}
TEST_F(Environment, ARemovedCurrentDirectoryGivesZero) {
    const auto before = std::filesystem::current_path();
    {
        const ScratchDirectory scratch;
        std::filesystem::current_path(scratch.path());
    }
    VAR path("before");
    EXPECT_EQ(VLibEGETCWD_IB(dp, &path), 0);
    EXPECT_EQ(path.view(), "");
    std::filesystem::current_path(before);
}
TEST_F(Environment, UsersAndGroupsAreLookedUp) {
    ASSERT_NE(VELDAgetpwnam(dp, "root"), nullptr);
    EXPECT_EQ(VELDAgetpwnam(dp, "root")->pw_uid, 0u);
    ASSERT_NE(VELDAgetgrnam(dp, "root"), nullptr);
    EXPECT_EQ(VELDAgetgrnam(dp, "root")->gr_gid, 0u);
    EXPECT_EQ(VELDAgetpwnam(dp, "no such user"), nullptr);
    EXPECT_EQ(VELDAgetgrnam(dp, "no such group"), nullptr);
}
TEST_F(Environment, TheSuperuserIsTheAdministrator) {
    EXPECT_EQ(VeldaIsAdminUser(dp), geteuid() == 0 ? 1 : 0);
    EXPECT_EQ(VELDAgetpid(dp), getpid());
}

TEST_F(SystemLog, ARecordIsALineWithTimePortUserAndProcess) {
    EXPECT_EQ(log("journal set 3 archived"), 0);
    ASSERT_EQ(lines().size(), 1u);
    const std::string pattern =
        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ port \d+ \S+ )" + std::to_string(getpid()) + ": journal set 3 archived";
    EXPECT_TRUE(std::regex_match(lines()[0], std::regex(pattern))) << lines()[0];
}
TEST_F(SystemLog, ATextOfSeveralLinesStaysOneRecord) {
    EXPECT_EQ(log("one\ntwo\r\n"), 0);
    ASSERT_EQ(lines().size(), 1u);
    EXPECT_TRUE(lines()[0].ends_with(": one\\ntwo\\r\\n")) << lines()[0];
}
TEST_F(SystemLog, ManyProcessesWriteWholeLines) {
    constexpr int Writers = 4, Records = 200;
    const std::string text(300, 'x');
    std::vector<pid_t> children;
    for (int i = 0; i < Writers; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            for (int n = 0; n < Records; ++n) log(text);
            _exit(0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) waitpid(child, nullptr, 0);
    EXPECT_EQ(lines().size(), static_cast<std::size_t>(Writers * Records));
    for (const std::string &line : lines()) EXPECT_TRUE(line.ends_with(": " + text)) << line;
}
TEST_F(SystemLog, OtherSetsAreAbsentWithoutAJournal) { EXPECT_EQ(VELDAWriteLogFile(dp, 1, 0, 0, "x", 1), 2); }
TEST_F(SystemLog, ABadSizeIsRefused) { EXPECT_EQ(VELDAWriteLogFile(dp, VELDA_SYSTEM_LOG, 0, 0, "x", -1), 22); }
TEST_F(SystemLog, ALogThatCannotBeWrittenGivesTheErrorNumber) {
    const std::string system = getenv("VELDAGLOBALDIR");
    std::ofstream(system + "/log") << "no directory";
    EXPECT_EQ(log("x"), ENOTDIR);
}
