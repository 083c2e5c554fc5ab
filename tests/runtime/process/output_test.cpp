#include "runtime/process/output.h"

#include <fcntl.h>

#include <fstream>
#include <sstream>

#include "tests/runtime/process/command_fixture.h"

using velda::CaptureOutput;
using velda::write_output;
using velda::test::CommandTest;
using velda::test::ScratchDirectory;

namespace {

class Output : public CommandTest {
  protected:
    // Runs a helper process with its output redirected by the shell; its exit code, and what it wrote on standard
    // error.
    int run_helper(const std::string &name, const std::string &redirection) {
        // The exit code of the helper, not of a reader behind it.
        const std::string command = "(exec /proc/" + std::to_string(getpid()) + "/exe --helper " + name + " 2>" +
                                    (scratch_ / "errors") + "; ) " + redirection;
        const int status = std::system(command.c_str());
        std::stringstream text;
        text << std::ifstream(scratch_ / "errors").rdbuf();
        errors = text.str();
        return WEXITSTATUS(status);
    }

    std::string errors;

  private:
    ScratchDirectory scratch_;
};

}  // namespace

TEST_F(Output, ACaptureTakesWhatIsWrittenWhileItLives) {
    std::string text;
    {
        const CaptureOutput capture(dp, text);
        EXPECT_TRUE(velda::output_is_captured(dp));
        EXPECT_FALSE(velda::output_is_terminal(dp));
        write_output(dp, "one\n");
        write_output(dp, "two");
    }
    EXPECT_EQ(text, "one\ntwo");
    EXPECT_FALSE(velda::output_is_captured(dp));
}

TEST_F(Output, TheInnermostCaptureTakesIt) {
    std::string outer, inner;
    const CaptureOutput outer_capture(dp, outer);
    write_output(dp, "a");
    {
        const CaptureOutput inner_capture(dp, inner);
        write_output(dp, "b");
    }
    write_output(dp, "c");
    EXPECT_EQ(outer, "ac");
    EXPECT_EQ(inner, "b");
}

TEST_F(Output, CapturesBelongToTheirContext) {
    std::string text;
    const CaptureOutput capture(dp, text);
    DP *other = velda_new_context();
    EXPECT_FALSE(velda::output_is_captured(other));
    velda_free_context(other);
}

TEST_F(Output, AMessageIsALine) {
    EXPECT_EQ(printed_by([this] { velda::print_message(dp, marks("201]F")); }), "Cannot open file 'F'\n");
}

TEST_F(Output, AllIsWrittenWhenTheCommandEnds) {
    const ScratchDirectory scratch;
    EXPECT_EQ(run_helper("print", "> " + scratch / "out"), 0);
    EXPECT_EQ(std::filesystem::file_size(scratch / "out"), 100000 * std::string("a line of output\n").size());
    EXPECT_EQ(errors, "");
}

TEST_F(Output, AFullDiskIsReportedByMessageAndExitCode) {
    EXPECT_EQ(run_helper("print", "> /dev/full"), 1);
    EXPECT_EQ(errors, "cannot write 'standard output': No space left on device\n");
}

TEST_F(Output, AReaderThatGoesAwayIsReportedByMessageAndExitCode) {
    const ScratchDirectory scratch;
    const std::string command = "{ /proc/" + std::to_string(getpid()) + "/exe --helper print 2>" + scratch / "errors" +
                                "; echo $? >" + scratch / "code" + "; } | head -1 >/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::string code, message;
    std::ifstream(scratch / "code") >> code;
    std::getline(std::ifstream(scratch / "errors"), message);
    EXPECT_EQ(code, "1");
    EXPECT_EQ(message, "cannot write 'standard output': Broken pipe");
}

TEST_F(Output, AnExitCodeOfTheCommandIsKeptWhenOutputFailsToo) {
    EXPECT_EQ(run_helper("print-and-exit-7", "> /dev/full"), 7);
}

TEST_F(Output, AStopOutsideOfAnyCommandIsSeenBeforeItEndsTheProcess) {
    const ScratchDirectory scratch;
    EXPECT_NE(run_helper("stop-outside", "> " + scratch / "out"), 0);
    std::stringstream text;
    text << std::ifstream(scratch / "out").rdbuf();
    EXPECT_EQ(text.str(), "before\nCannot open file 'F'\n");
}
