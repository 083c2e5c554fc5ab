#include "runtime/process/system_numbers.h"

#include <fcntl.h>
#include <pty.h>
#include <pwd.h>
#include <unistd.h>

#include <filesystem>

#include "tests/runtime/process/command_fixture.h"

using velda::system_number;
using velda::test::CommandTest;

namespace {

class SystemNumbers : public CommandTest {};

const velda::SystemNumberProvider registered(987654, [](DP *, VAR &target) { target = "from elsewhere"; });

}  // namespace

TEST_F(SystemNumbers, TheLastErrorIsNumberZero) {
    dp->last_error = 24576;
    EXPECT_EQ(system_number(0).to_integer(), 24576);
    dp->last_error = 0;
}
TEST_F(SystemNumbers, TenIsTrueWhenStackedDataWaits) {
    run([] {
        EXPECT_EQ(system_number(10).to_integer(), 0);
        velda::stack_data("line");
        EXPECT_EQ(system_number(10).to_integer(), 1);
    });
}
TEST_F(SystemNumbers, TheUserIsTheProcessesUser) {
    EXPECT_EQ(system_number(1015).str(), getpwuid(getuid())->pw_name);
    EXPECT_EQ(system_number(1007).str(), system_number(1015).str());
}
TEST_F(SystemNumbers, NobodyIsAskedWhereTheInputIsNoTerminal) {
    const int input = dup(STDIN_FILENO);
    int terminal = -1, user = -1;
    ASSERT_EQ(openpty(&terminal, &user, nullptr, nullptr, nullptr), 0);
    dup2(user, STDIN_FILENO);
    EXPECT_FALSE(system_number(1043));
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    EXPECT_TRUE(system_number(1043));
    dup2(input, STDIN_FILENO);
    for (const int descriptor : {input, terminal, user}) close(descriptor);
}
TEST_F(SystemNumbers, TheAccountIsTheUserUnlessTheEnvironmentNamesOne) {
    unsetenv("VELDAACCOUNT");
    EXPECT_EQ(system_number(19).str(), system_number(1015).str());
    setenv("VELDAACCOUNT", "SALES", 1);
    EXPECT_EQ(system_number(19).view(), "SALES");
    EXPECT_EQ(system_number(50).view(), "SALES");
    unsetenv("VELDAACCOUNT");
}
TEST_F(SystemNumbers, DirectoriesAreThoseOfTheEnvironment) {
    EXPECT_EQ(system_number(1011).str(), VELDA_SOURCE_DIR "/share");
    EXPECT_EQ(system_number(1012).str(), getenv("VELDAGLOBALDIR"));
}
TEST_F(SystemNumbers, WithoutAVariableTheReleaseDirectoryIsWhereItWasInstalled) {
    unsetenv("VBCRELEASEDIR");
    EXPECT_TRUE(std::filesystem::path(system_number(1011).str()).is_absolute());
    EXPECT_EQ(std::filesystem::path(system_number(1011).str()).filename(), "velda");
}
TEST_F(SystemNumbers, TheSystemFileIsInTheGlobalDirectoryUnlessNamed) {
    unsetenv("VELDASYSTEM");
    EXPECT_EQ(system_number(1008).str(), system_number(1012).str() + "/SYSTEM");
    setenv("VELDASYSTEM", "/accounts", 1);
    EXPECT_EQ(system_number(1008).view(), "/accounts");
    unsetenv("VELDASYSTEM");
}
TEST_F(SystemNumbers, TheProcessAndPlatformAreNamed) {
    EXPECT_EQ(system_number(1037).to_integer(), getpid());
    EXPECT_EQ(system_number(1017).view(), "LINUX");
}
TEST_F(SystemNumbers, TheTemporaryFileNameLiesInTheGlobalDirectory) {
    const std::string name = system_number(1002).str();
    EXPECT_EQ(std::filesystem::path(name).parent_path(), system_number(1012).str() + "/tmp");
}
TEST_F(SystemNumbers, ANumberRegisteredElsewhereIsAnsweredThere) {
    EXPECT_EQ(system_number(987654).view(), "from elsewhere");
}
TEST_F(SystemNumbers, AnUnknownNumberIsZero) { EXPECT_EQ(system_number(987655).view(), "0"); }
TEST_F(SystemNumbers, TheTargetIsTheResult) {
    VAR target;
    EXPECT_EQ(VLibESYSTEM_BBI(dp, &target, 1017), &target);
    EXPECT_EQ(target.view(), "LINUX");
}
TEST_F(SystemNumbers, AtVariablesOfExpressionsKeepWhatIsStored) {
    for (const int number : {18, 19, 20}) {
        EXPECT_EQ(velda::at_variable(number).view(), "");
        velda::at_variable(number) = "stored";
        EXPECT_EQ(velda::at_variable(number).view(), "stored");
        velda::at_variable(number) = "";
    }
}
TEST_F(SystemNumbers, AtVariablesOfTheSessionAreComputed) {
    EXPECT_EQ(velda::at_variable(5).view(), "\x06");
    EXPECT_EQ(velda::at_variable(24).view(), "\x04");
    EXPECT_EQ(velda::at_variable(15).str(), system_number(1015).str());
    EXPECT_EQ(velda::at_variable(31).to_integer(), getpid());
    run([] { EXPECT_EQ(velda::at_variable(38).view(), "COPY A B"); }, "COPY  A B");
    EXPECT_EQ(velda::at_variable(99).view(), "");
}
