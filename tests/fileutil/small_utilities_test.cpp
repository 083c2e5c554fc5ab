// The small utilities.
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
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

// --- directories -------------------------------------------------------------------------------------------------------

int make_directory(const char *path, int mode, int logged) {
    return VELDAMakeDirectory(velda_getdp(), path, "ignored", "ignored", mode, logged);
}

unsigned mode_of(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// The process mask of a test, and the one before it at the end.
class Mask {
  public:
    explicit Mask(mode_t mask) : before_(umask(mask)) {}
    ~Mask() { umask(before_); }

  private:
    mode_t before_;
};

TEST_F(SmallUtilities, MakeDirectoryGivesTheModeWhateverTheProcessMask) {
    const Mask mask(077);
    EXPECT_EQ(make_directory("made", 0775, 1), 0);
    EXPECT_EQ(mode_of("made"), 0775u);
    EXPECT_EQ(make_directory("kept", 07755, 1), 0) << "9 bits of the mode count";
    EXPECT_EQ(mode_of("kept"), 0755u);
    EXPECT_EQ(umask(077), mode_t{077}) << "the mask is back";
}

TEST_F(SmallUtilities, MakeDirectoryTakesWhatTheMaskAllowsForAModeBelowOne) {
    const Mask mask(027);
    EXPECT_EQ(make_directory("zero", 0, 1), 0);
    EXPECT_EQ(mode_of("zero"), 0750u);
    EXPECT_EQ(make_directory("minus", -1, 1), 0);
    EXPECT_EQ(mode_of("minus"), 0750u);
}

TEST_F(SmallUtilities, MakeDirectorySetsTheModeOfOneThatExists) {
    std::filesystem::create_directory("there");
    EXPECT_EQ(make_directory("there", 0711, 1), 0);
    EXPECT_EQ(mode_of("there"), 0711u);
}

TEST_F(SmallUtilities, MakeDirectoryMakesAFileThatIsNotJournalled) {
    EXPECT_EQ(make_directory("plain", 0755, 0), 0);
    File file;
    ASSERT_TRUE(file.open("plain"));
    EXPECT_EQ(file.status()(VELDA_STATUS_LOGGED).str(), "0");
    EXPECT_NE(VAR(file.status()(VELDA_STATUS_OPTIONS)).str().find("-T"), std::string::npos);
    EXPECT_EQ(make_directory("logged", 0755, 1), 0);
    ASSERT_TRUE(file.open("logged"));
    EXPECT_EQ(file.status()(VELDA_STATUS_LOGGED).str(), "1");
}

TEST_F(SmallUtilities, MakeDirectoryTellsWhenItCannot) {
    EXPECT_EQ(make_directory("no/parent", 0755, 1), -2);
    EXPECT_EQ(make_directory("no/parent", 0755, 0), -2);
    write_host_file("file", "no directory");
    EXPECT_EQ(make_directory("file", 0644, 0), -2);
}

TEST_F(SmallUtilities, MakeDirectoryTellsWhenTheDirectoryDoesNotTakeTheOptions) {
    if (geteuid() != 0) GTEST_SKIP() << "needs the superuser, to become someone else";
    std::filesystem::permissions(directory_.path(), std::filesystem::perms::all);
    std::filesystem::create_directory("theirs");
    const pid_t child = fork();
    if (child == 0) {
        constexpr uid_t Nobody = 65534;
        if (setgid(Nobody) != 0 || setuid(Nobody) != 0) _exit(1);
        _exit(make_directory("theirs", 0755, 0) == -3 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

int is_symbolic_link(const std::string &path) {
    const VAR cell = path;
    return VELDACheckSymLinkFile(velda_getdp(), &cell);
}

TEST_F(SmallUtilities, CheckSymLinkFileKnowsASymbolicLink) {
    write_host_file("file", "x");
    std::filesystem::create_symlink("file", "link");
    std::filesystem::create_symlink("nowhere", "dangling");
    std::filesystem::create_directory("directory");
    EXPECT_EQ(is_symbolic_link("link"), 1);
    EXPECT_EQ(is_symbolic_link("dangling"), 1);
    EXPECT_EQ(is_symbolic_link("file"), 0);
    EXPECT_EQ(is_symbolic_link("directory"), 0);
    EXPECT_EQ(is_symbolic_link("/dev/null"), 0);
    EXPECT_EQ(is_symbolic_link("nothing"), 0);
}

}  // namespace
