#include "runtime/print/job.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "tests/support/scratch.h"

using velda::PrintJobOwner;
using velda::test::ScratchDirectory;

namespace {

constexpr PrintJobOwner Port7Unit0{7, 0};

std::string content_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::set<std::string> names_in(const std::string &directory) {
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) names.insert(entry.path().filename());
    return names;
}

using Names = std::set<std::string>;

}  // namespace

TEST(FilePrintJob, IsUnfinishedUntilItIsHandedOver) {
    const ScratchDirectory directory;
    auto job = velda::begin_file_job(directory.path(), Port7Unit0);
    ASSERT_TRUE(job);
    ASSERT_TRUE((*job)->write("one "));
    EXPECT_EQ(names_in(directory.path()), Names{"7-0-1.part"});
    ASSERT_TRUE((*job)->write("two"));
    ASSERT_TRUE((*job)->finish());
    EXPECT_EQ(names_in(directory.path()), Names{"7-0-1.prn"});
    EXPECT_EQ(content_of(directory / "7-0-1.prn"), "one two");
}

TEST(FilePrintJob, TakesTheNumberAboveTheHighestInUse) {
    const ScratchDirectory directory;
    for (const char *name : {"7-0-4.prn", "7-0-9.part", "7-1-20.prn", "70-0-30.prn", "7-0-99.txt"})
        std::ofstream(directory / name);
    auto job = velda::begin_file_job(directory.path(), Port7Unit0);
    ASSERT_TRUE(job);
    ASSERT_TRUE((*job)->finish());
    EXPECT_TRUE(names_in(directory.path()).contains("7-0-10.prn"));
}

TEST(FilePrintJob, TwoJobsOfOneUnitDoNotMeet) {
    const ScratchDirectory directory;
    auto first = velda::begin_file_job(directory.path(), Port7Unit0);
    auto second = velda::begin_file_job(directory.path(), Port7Unit0);
    ASSERT_TRUE(first && second);
    ASSERT_TRUE((*first)->write("first"));
    ASSERT_TRUE((*second)->write("second"));
    ASSERT_TRUE((*first)->finish());
    ASSERT_TRUE((*second)->finish());
    EXPECT_EQ(content_of(directory / "7-0-1.prn"), "first");
    EXPECT_EQ(content_of(directory / "7-0-2.prn"), "second");
}

TEST(FilePrintJob, AJobThatIsDroppedLeavesItsPart) {
    const ScratchDirectory directory;
    ASSERT_TRUE(velda::begin_file_job(directory.path(), Port7Unit0));
    EXPECT_EQ(names_in(directory.path()), Names{"7-0-1.part"});
}

TEST(FilePrintJob, AMissingDirectoryIsNamed) {
    const auto job = velda::begin_file_job("/no/such/directory", Port7Unit0);
    ASSERT_FALSE(job);
    EXPECT_EQ(job.error().message, "cannot make print job '/no/such/directory/7-0-1.part': No such file or directory");
}

TEST(FilePrintJob, AFullDiskFailsTheJobOnceAndNamesIt) {
    const ScratchDirectory directory;
    signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{100000, before.rlim_max};
    auto job = velda::begin_file_job(directory.path(), Port7Unit0);
    ASSERT_TRUE(job);
    setrlimit(RLIMIT_FSIZE, &small);
    const auto written = (*job)->write(std::string(200000, 'x'));
    setrlimit(RLIMIT_FSIZE, &before);
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().message, "cannot write print job '" + (directory / "7-0-1.part") + "': File too large");
    EXPECT_TRUE((*job)->write("more"));
    EXPECT_TRUE((*job)->finish());
    EXPECT_EQ(names_in(directory.path()), Names{"7-0-1.part"});
}

TEST(CommandPrintJob, TheCommandReadsTheJob) {
    const ScratchDirectory directory;
    auto job = velda::begin_command_job("cat > " + (directory / "printed"), Port7Unit0);
    ASSERT_TRUE(job);
    ASSERT_TRUE((*job)->write("one "));
    ASSERT_TRUE((*job)->write("two"));
    ASSERT_TRUE((*job)->finish());
    EXPECT_EQ(content_of(directory / "printed"), "one two");
}

TEST(CommandPrintJob, TheCommandKnowsPortAndUnit) {
    const ScratchDirectory directory;
    auto job = velda::begin_command_job("echo $VELDAPRINTPORT $VELDAPRINTUNIT > " + (directory / "owner"), {12, 3});
    ASSERT_TRUE(job);
    ASSERT_TRUE((*job)->finish());
    EXPECT_EQ(content_of(directory / "owner"), "12 3\n");
}

TEST(CommandPrintJob, AFailedCommandFailsTheJobAndIsNamed) {
    auto job = velda::begin_command_job("cat > /dev/null; exit 3", Port7Unit0);
    ASSERT_TRUE(job);
    const auto finished = (*job)->finish();
    ASSERT_FALSE(finished);
    EXPECT_EQ(finished.error().message, "print command 'cat > /dev/null; exit 3' failed: exit code 3");
}

TEST(CommandPrintJob, ACommandThatStopsReadingFailsTheWriteAndNotTheProcess) {
    signal(SIGPIPE, SIG_DFL);
    auto job = velda::begin_command_job("exec <&-; sleep 0.1", Port7Unit0);
    ASSERT_TRUE(job);
    const auto written = (*job)->write(std::string(1000000, 'x'));
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().message, "cannot write to print command 'exec <&-; sleep 0.1': Broken pipe");
}

TEST(PrintJob, TheEnvironmentChoosesBetweenCommandAndFile) {
    const velda::test::ScratchSystem system;
    auto file = velda::begin_print_job(Port7Unit0);
    ASSERT_TRUE(file);
    ASSERT_TRUE((*file)->finish());
    EXPECT_EQ(names_in(system / "print"), Names{"7-0-1.prn"});

    setenv("VELDAPRINTER", ("cat > " + (system / "printed")).c_str(), 1);
    auto command = velda::begin_print_job(Port7Unit0);
    unsetenv("VELDAPRINTER");
    ASSERT_TRUE(command);
    ASSERT_TRUE((*command)->write("x"));
    ASSERT_TRUE((*command)->finish());
    EXPECT_EQ(content_of(system / "printed"), "x");
}
