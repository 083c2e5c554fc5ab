// IOCTL, STATUS, FILEINFO, DIR and unique keys.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <set>

#include "tests/runtime/file/fixture.h"

namespace velda::test {
namespace {

class Status : public FileTest {
  protected:
    int ioctl(int number, VAR &argument) {
        const VAR command(number);
        return VLibFIOCTL_IBBB(dp, &file, &command, &argument);
    }
    VAR status() {
        VAR result;
        EXPECT_EQ(VLibFSTATUS_IBBB(dp, &result, &file, nullptr), 1);
        return result;
    }
};

TEST_F(Status, Command10GivesTheTypeInAttribute1) {
    VAR result;
    make_file("UD");
    EXPECT_EQ(ioctl(10, result), 1);
    EXPECT_EQ(result(1).view(), "UD");
    ASSERT_EQ(create("DATA " + path("H")), "");
    ASSERT_EQ(open(path("H"), file), 1);
    EXPECT_EQ(ioctl(10, result), 1);
    EXPECT_EQ(result(1).view(), "HL");
}

TEST_F(Status, StatusTellsTheSettingsOfTheFile) {
    ASSERT_EQ(create("DATA " + path("F") + " 1,1 23,1 -B -T LOG=NO PERMS=0640 DURABILITY=LAZY"), "");
    ASSERT_EQ(open(path("F"), file), 1);
    write("K1", "a");
    write("K2", "a");
    const VAR result = status();
    struct stat on_disk;
    ASSERT_EQ(stat(path("F").c_str(), &on_disk), 0);
    EXPECT_EQ(result(VELDA_STATUS_RECORDS).view(), "2");
    EXPECT_GT(result(VELDA_STATUS_SIZE).to_integer(), 0);
    EXPECT_EQ(result(VELDA_STATUS_DURABILITY).view(), "lazy");
    EXPECT_EQ(result(VELDA_STATUS_LOGGED).view(), "0");
    EXPECT_EQ(result(VELDA_STATUS_PERMISSIONS).view(), "0640");
    EXPECT_EQ(shown(result(VELDA_STATUS_OPTIONS).view()), "1,1]23,1]-B]-T");
    EXPECT_EQ(result(VELDA_STATUS_INODE).to_integer(), static_cast<std::int64_t>(on_disk.st_ino));
    EXPECT_EQ(result(VELDA_STATUS_DEVICE).to_integer(), static_cast<std::int64_t>(on_disk.st_dev));
    EXPECT_EQ(result(VELDA_STATUS_NAME).view(), path("F"));
    EXPECT_EQ(result(27).view(), path("F"));
}

TEST_F(Status, StatusAndCommand10AreTheSame) {
    make_file();
    VAR by_command;
    EXPECT_EQ(ioctl(10, by_command), 1);
    EXPECT_EQ(shown(by_command.view()), shown(status().view()));
}

TEST_F(Status, ACellThatIsNoFileHasNoStatus) {
    file = "text";
    VAR result("before"), setting;
    EXPECT_EQ(VLibFSTATUS_IBBB(dp, &result, &file, &setting), 0);
    EXPECT_EQ(result.view(), "");
    EXPECT_EQ(setting.to_integer(), EBADF);
}

TEST_F(Status, ModeWordsSetReadAndWriteModeOnTheirOwn) {
    make_file("UD");
    const auto mode_after = [&](const char *text) {
        VAR words(text);
        const int result = ioctl(9, words);
        const VAR now = status();
        return std::to_string(result) + " " + now(VELDA_STATUS_READ_MODE).str() + "," +
               now(VELDA_STATUS_WRITE_MODE).str();
    };
    EXPECT_EQ(status()(VELDA_STATUS_READ_MODE).view(), "");
    EXPECT_EQ(mode_after("RB"), "1 RB,");
    EXPECT_EQ(mode_after("WT"), "1 RB,WT");
    EXPECT_EQ(mode_after("RT,WB"), "1 RT,WB");
    EXPECT_EQ(mode_after("RB,WB"), "1 RB,WB");
    EXPECT_EQ(mode_after("RT,WT"), "1 RT,WT");
    EXPECT_EQ(mode_after("RB,XX"), "0 RT,WT");
    EXPECT_EQ(dp->last_error, EINVAL);
    EXPECT_EQ(mode_after(""), "0 RT,WT");
}

TEST_F(Status, AHashedFileTakesTheModeWords) {
    make_file("HL");
    VAR words("RT,WT");
    EXPECT_EQ(ioctl(9, words), 1);
    write("K", "a^b");
    EXPECT_EQ(read("K").record, "a^b");
}

TEST_F(Status, OtherCommandsAndOtherCellsAreRefused) {
    make_file();
    VAR argument("before");
    EXPECT_EQ(ioctl(11, argument), 0);
    EXPECT_EQ(dp->last_error, EINVAL);
    file = 3;
    EXPECT_EQ(ioctl(10, argument), 0);
    EXPECT_EQ(dp->last_error, EBADF);
    EXPECT_EQ(argument.view(), "before");
}

TEST_F(Status, FileinfoHasTheFullPathInAttribute20) {
    make_file("UD");
    VAR information;
    const VAR selector(1);
    EXPECT_EQ(VLibFFILEINFO_BBBB(dp, &information, &file, &selector), &information);
    EXPECT_EQ(information(20).view(), path("F"));
    EXPECT_EQ(information(VELDA_FILEINFO_TYPE).view(), "UD");
    const VAR none("none");
    VLibFFILEINFO_BBBB(dp, &information, &none, &selector);
    EXPECT_EQ(information.view(), "");
}

TEST_F(Status, DirTellsSizeDateTimeAndKind) {
    std::ofstream(path("plain")) << "12345";
    const timespec times[] = {{0, 0}, {86400 * 20 + 3661, 0}};
    setenv("TZ", "UTC", 1);
    tzset();
    ASSERT_EQ(utimensat(AT_FDCWD, path("plain").c_str(), times, 0), 0);
    VAR details;
    const auto dir = [&](const std::string &name) {
        const VAR wanted(name);
        EXPECT_EQ(VLibEDIR_BBB(dp, &details, &wanted), &details);
        return shown(details.view());
    };
    EXPECT_EQ(dir(path("plain")), "5^752^3661^");
    EXPECT_EQ(dir(directory.path() + "\\plain"), "5^752^3661^");
    dir(directory.path());
    EXPECT_EQ(details(4).view(), "D");
    dir("/dev/null");
    EXPECT_EQ(details(4).view(), "S");
    EXPECT_EQ(dir(path("missing")), "");
    EXPECT_EQ(dp->last_error, ENOENT);
    unsetenv("TZ");
    tzset();
}

TEST_F(Status, UniqueKeysNeverRepeatAlsoNotInAForkedProcess) {
    constexpr int Count = 20000;
    int channel[2];
    ASSERT_EQ(pipe(channel), 0);
    const auto make_keys = [&] {
        std::set<std::string> keys;
        VAR key;
        for (int i = 0; i < Count; ++i) keys.insert(VLibEUNIQUEKEY_BB(dp, &key)->str());
        return keys;
    };
    const pid_t child = fork();
    if (child == 0) {
        for (const std::string &key : make_keys()) {
            if (::write(channel[1], key.data(), key.size()) < 0) _exit(1);
        }
        _exit(0);
    }
    close(channel[1]);
    std::set<std::string> keys = make_keys();
    EXPECT_EQ(keys.size(), static_cast<std::size_t>(Count));
    const std::size_t length = keys.begin()->size();
    EXPECT_EQ(length, 16u);
    std::string from_child, part(65536, '\0');
    for (ssize_t got; (got = ::read(channel[0], part.data(), part.size())) > 0;)
        from_child.append(part, 0, static_cast<std::size_t>(got));
    close(channel[0]);
    waitpid(child, nullptr, 0);
    ASSERT_EQ(from_child.size(), Count * length);
    for (std::size_t at = 0; at < from_child.size(); at += length) keys.insert(from_child.substr(at, length));
    EXPECT_EQ(keys.size(), static_cast<std::size_t>(2 * Count));
}

}  // namespace
}  // namespace velda::test
