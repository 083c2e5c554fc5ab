// The interactive shell, on a pseudo-terminal.
#include "runtime/vutil.h"
#include "tests/commands/fixture.h"
#include "tests/support/terminal_program.h"

using velda::test::CommandTest;
using velda::test::OnTerminal;

namespace {

class ShellTest : public CommandTest {
  protected:
    void SetUp() override {
        CommandTest::SetUp();
        setenv("HOME", account_.c_str(), 1);
        setenv("VELDAPROMPT", "ready> ", 1);
    }

    static void start_shell(DP *) {
        const std::string path = program();
        execl(path.c_str(), path.c_str(), nullptr);
        _exit(127);
    }
};

}  // namespace

TEST_F(ShellTest, RunsCommandsAtItsPromptUntilOff) {
    OnTerminal shell(start_shell);
    shell.until("ready> ");
    shell.type("CREATE-FILE F\r");
    shell.until("ready> ");
    shell.type("COUNT F\r");
    shell.until("0 records counted");
    shell.until("ready> ");
    shell.type("OFF\r");
    EXPECT_EQ(shell.exit_code(), 0);
}

TEST_F(ShellTest, AQuestionMarkShowsTheCommands) {
    OnTerminal shell(start_shell);
    shell.until("ready> ");
    shell.type("?\r");
    shell.until("CREATE-FILE");
    shell.until("ready> ");
    shell.type("OFF\r");
    EXPECT_EQ(shell.exit_code(), 0);
}

TEST_F(ShellTest, AFailedCommandDoesNotEndTheSession) {
    OnTerminal shell(start_shell);
    shell.until("ready> ");
    shell.type("COUNT NONE\r");
    shell.until("Cannot open file 'NONE'");
    shell.until("ready> ");
    shell.type("OFF\r");
    EXPECT_EQ(shell.exit_code(), 0);
}

TEST_F(ShellTest, TheHistoryOfTheLastSessionIsThere) {
    {
        OnTerminal shell(start_shell);
        shell.until("ready> ");
        shell.type("COUNT NONE\r");
        shell.until("ready> ");
        shell.type("OFF\r");
        EXPECT_EQ(shell.exit_code(), 0);
    }
    OnTerminal shell(start_shell);
    shell.until("ready> ");
    shell.type("\x10\x10\r");  // control P twice: the command before OFF
    shell.until("Cannot open file 'NONE'");
    shell.until("ready> ");
    shell.type("OFF\r");
    EXPECT_EQ(shell.exit_code(), 0);
}

TEST_F(ShellTest, ListLocksShowsHoldersKeysAndThoseWhoWait) {
    make_file("ORDERS", {{"1", "a"}});
    const auto lock = [](const char *shown) {
        return [=](DP *dp) {
            velda::crt_line(VELDAGetPortNumber(dp), " starts");
            velda::File file;
            file.open("ORDERS");
            file.read_locked("order 1");
            VLibELOCK_IIII(dp, 256, 0, 255);
            velda::crt_line(shown);
            velda::sleep_seconds(30);
        };
    };
    OnTerminal holder(lock("locked"));
    const std::string holders_port = holder.until(" starts");
    holder.until("locked");
    OnTerminal waiter(lock("granted"));
    const std::string waiters_port = waiter.until(" starts");
    velda::test::Ran ran;
    ASSERT_TRUE(velda::test::eventually([&] {
        ran = velda({"LIST-LOCKS", "--json"});
        return ran.output.find("\"waiting\": \"" + waiters_port + "\"") != std::string::npos;
    })) << ran.output;
    EXPECT_EQ(ran.code, 0);
    EXPECT_TRUE(ran.output.starts_with("[{\"port\": " + holders_port + ", \"pid\": ")) << ran.output;
    EXPECT_NE(ran.output.find("\"type\": \"R\", \"key\": \"order 1\", \"inode\": "), std::string::npos) << ran.output;
    EXPECT_NE(ran.output.find("\"type\": \"E\", \"key\": \"255\", \"inode\": 0"), std::string::npos) << ran.output;
    ran = velda({"LIST-LOCKS"});
    EXPECT_TRUE(ran.output.starts_with("Port  Process  Type  Key")) << ran.output;
    EXPECT_NE(ran.output.find("order 1"), std::string::npos) << ran.output;
}

TEST_F(ShellTest, TheBreakKeyEndsAWaitForALockAndNotTheSession) {
    make_file("ORDERS", {{"1", "a"}});
    OnTerminal holder([](DP *dp) {
        VAR file, record;
        const VAR name = "ORDERS", key = "1";
        VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, &file, nullptr);
        VLibFNEWREAD_IIBBBIB(dp, VELDA_READ_LOCK, &file, &record, &key, 0, nullptr);
        velda::crt_line("locked");
        velda::sleep_seconds(30);
    });
    holder.until("locked");
    OnTerminal waiter([](DP *dp) {
        VAR file, record;
        const VAR name = "ORDERS", key = "1";
        VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, &file, nullptr);
        velda::crt_line("waiting");
        VLibFNEWREAD_IIBBBIB(dp, VELDA_READ_LOCK, &file, &record, &key, 0, nullptr);
        velda::crt_line("never granted");
    });
    waiter.until("waiting");
    usleep(200000);
    waiter.type("\x03");
    waiter.until("Interrupted");
    EXPECT_EQ(waiter.exit_code(), 1);
}
