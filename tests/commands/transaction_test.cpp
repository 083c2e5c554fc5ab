// TRANSTART, TRANSEND and TRANSABORT, in scripts and at the prompt.
#include "runtime/vutil.h"
#include "tests/commands/fixture.h"
#include "tests/support/terminal_program.h"

using velda::test::CommandTest;
using velda::test::OnTerminal;

namespace {

class TransactionCommandTest : public CommandTest {
  protected:
    void SetUp() override {
        CommandTest::SetUp();
        make_file("ORDERS", {{"a", "1"}, {"b", "2"}});
        make_file("DONE", {});
    }
    std::string count(const std::string &file) { return velda({"COUNT", file}).output; }
};

}  // namespace

TEST_F(TransactionCommandTest, AScriptsChangesAreMadeByTransend) {
    const auto ran = velda({"-c", "TRANSTART nightly run\nCOPY ORDERS *\n<(DONE\nCOUNT DONE\nTRANSEND"});
    EXPECT_EQ(ran.code, 0) << ran.output;
    EXPECT_NE(ran.output.find("2 records counted"), std::string::npos) << ran.output;
    EXPECT_EQ(count("DONE"), "2 records counted\n");
}

TEST_F(TransactionCommandTest, TransabortDropsThem) {
    const auto ran = velda({"-c", "TRANSTART\nCOPY ORDERS *\n<(DONE\nTRANSABORT\nCOUNT DONE"});
    EXPECT_EQ(ran.code, 0) << ran.output;
    EXPECT_NE(ran.output.find("0 records counted"), std::string::npos) << ran.output;
}

TEST_F(TransactionCommandTest, AScriptThatEndsWithinATransactionLeavesNothing) {
    EXPECT_EQ(velda({"-c", "TRANSTART\nCOPY ORDERS *\n<(DONE"}).code, 0);
    EXPECT_EQ(count("DONE"), "0 records counted\n");
}

TEST_F(TransactionCommandTest, AScriptThatFailsWithinATransactionLeavesNothing) {
    EXPECT_NE(velda({"-c", "TRANSTART\nCOPY ORDERS *\n<(DONE\nCOUNT NONE\nTRANSEND"}).code, 0);
    EXPECT_EQ(count("DONE"), "0 records counted\n");
}

TEST_F(TransactionCommandTest, AnEndWithoutATransactionIsExitCode1) {
    EXPECT_EQ(velda({"TRANSEND"}).code, 1);
    EXPECT_EQ(velda({"TRANSABORT"}).code, 1);
    EXPECT_NE(velda({"TRANSEND"}).output.find("no transaction is active"), std::string::npos);
}

TEST_F(TransactionCommandTest, AFileIsNotClearedWithinATransaction) {
    const auto ran = velda({"-c", "TRANSTART\nCLEAR-FILE ORDERS"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_NE(ran.output.find("cannot be cleared within a transaction"), std::string::npos) << ran.output;
    EXPECT_EQ(count("ORDERS"), "2 records counted\n");
}

TEST_F(TransactionCommandTest, ATransactionOfThePromptOutlivesItsCommandsAndASecondTranstartLeavesItActive) {
    setenv("VELDAPROMPT", "ready> ", 1);
    OnTerminal shell([](DP *) {
        const std::string path = program();
        execl(path.c_str(), path.c_str(), nullptr);
        _exit(127);
    });
    shell.until("ready> ");
    shell.type("TRANSTART\r");
    shell.until("ready> ");
    shell.type("COPY ORDERS *\r");
    shell.until("To:");
    shell.type("(DONE\r");
    shell.until("ready> ");
    shell.type("TRANSTART\r");
    shell.until("a transaction is active already");
    shell.until("ready> ");
    shell.type("COUNT DONE\r");
    shell.until("2 records counted");
    EXPECT_EQ(count("DONE"), "0 records counted\n");
    shell.until("ready> ");
    shell.type("TRANSEND\r");
    shell.until("ready> ");
    EXPECT_EQ(count("DONE"), "2 records counted\n");
    shell.type("OFF\r");
    EXPECT_EQ(shell.exit_code(), 0);
}
