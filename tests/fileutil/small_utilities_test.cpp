// The small utilities.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fileutil/fileutil.h"
#include "tests/support/command.h"

using namespace velda;
using namespace velda::test;

namespace {

class SmallUtilities : public InScratchDirectory {};

std::string error_text(int number) {
    VAR target = "old";
    EXPECT_EQ(VELDAPERROR(&target, velda_getdp(), number), &target);
    return target.str();
}

TEST_F(SmallUtilities, ErrorTextNamesAKnownErrorBehindAColon) {
    EXPECT_EQ(error_text(2), ": No such file or directory");
    EXPECT_EQ(error_text(28), ": No space left on device");
}

TEST_F(SmallUtilities, ErrorTextSaysWhenTheErrorIsUnknown) {
    EXPECT_EQ(error_text(24576), ": Unknown error");
    EXPECT_EQ(error_text(-1), ": Unknown error");
}

TEST_F(SmallUtilities, FrameSizeIs4096) { EXPECT_EQ(VELDAGetFrameSize(), 4096); }

// The keep key of a program without terminal that has this text.
std::string keep_key(const std::string &text) {
    return run_on_pipes("",
                        [=](DP *dp) {
                            VAR key;
                            VELDAGetTTYKeepKey(&key, dp, text.c_str());
                            crt(key, " ", VELDAGetPortNumber(dp));
                        })
        .output;
}

TEST_F(SmallUtilities, KeepKeyEndsWithThePortWhenItHasNoDigit) {
    const std::string output = keep_key("text");
    EXPECT_EQ(output, "vutil_text_-" + field(output, " ", 2).str() + " " + field(output, " ", 2).str());
}

TEST_F(SmallUtilities, KeepKeyHoldsNoByteThatAFileNameCouldNotHold) {
    EXPECT_EQ(field(keep_key("a/b c*1%+-._\xE9"), " ", 1).str(), "vutil_a_b_c_1%+-.___");
}

TEST_F(SmallUtilities, KeepKeyNamesTheTerminal) {
    OnTerminal terminal([](DP *dp) {
        VAR key, name;
        VELDAGetTTYName(dp, &name);
        crt(*VELDAGetTTYKeepKey(&key, dp, "x"), " vutil_x_", convert(name, "/", "_"), ";");
    });
    const std::string shown_line = terminal.until(";");
    EXPECT_EQ(field(shown_line, " ", 1).str(), field(shown_line, " ", 2).str());
    EXPECT_NE(shown_line.find("_pts_"), std::string::npos) << shown_line;
}

int personal_options() {
    VAR options = "old";
    run_command("OPTIONS", [&](DP *dp) { VBC_VELDAInitialisePersonalOptions(dp, "V", &options); });
    EXPECT_TRUE(options.is_numeric());
    return to_int(options);
}

TEST_F(SmallUtilities, PersonalOptionsAreNoneWithoutRecordAndWithoutHome) {
    EXPECT_EQ(personal_options(), 0);
    unsetenv("HOME");
    EXPECT_EQ(personal_options(), 0);
    setenv("HOME", "/no/such/directory", 1);
    EXPECT_EQ(personal_options(), 0);
}

TEST_F(SmallUtilities, PersonalOptionsSetAFlagForEachWord) {
    write_host_file(".velda_options", "CASE\n");
    EXPECT_EQ(personal_options(), 1);
    write_host_file(".velda_options", "COMMENT\n");
    EXPECT_EQ(personal_options(), 2);
    write_host_file(".velda_options", "\n  comment  \nCase\nCASE\n");
    EXPECT_EQ(personal_options(), 3);
}

TEST_F(SmallUtilities, PersonalOptionsSkipCommentsAndOtherWords) {
    write_host_file(".velda_options", "*CASE\n# COMMENT\n* CASE\nCASES\nCASE COMMENT\n");
    EXPECT_EQ(personal_options(), 0);
}

}  // namespace
