// Faults: no permission, full disks, damaged files, what is no file.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>

#include "tests/runtime/file/fixture.h"
#include "tests/support/mounted_disk.h"

namespace velda::test {
namespace {

class Fault : public FileTest {
  protected:
    // Runs the body in a child process; a failed expectation of the child, or its death, fails the test.
    static void in_child(const std::function<void()> &body) {
        const pid_t child = fork();
        if (child == 0) {
            body();
            fflush(nullptr);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    }
    // The same as a user who owns nothing here, but may use the system.
    void as_nobody(const std::function<void()> &body) const {
        if (geteuid() != 0) GTEST_SKIP() << "needs the superuser, to become someone else";
        std::filesystem::permissions(directory.path(), std::filesystem::perms::all);
        in_child([&] {
            constexpr uid_t Nobody = 65534;
            ASSERT_EQ(setgid(Nobody), 0);
            ASSERT_EQ(setuid(Nobody), 0);
            body();
        });
    }
};

// --- permission ------------------------------------------------------------------------------------------------------

TEST_F(Fault, AFileThatMayNotBeReadIsNotOpenedAndTheCodeIs24576) {
    for (const char *type : {"HL", "UD"}) {
        const std::string name = path(type);
        ASSERT_EQ(create("DATA " + name + " TYPE=" + type + " PERMS=0600"), "");
        as_nobody([&] {
            VAR target, code;
            const VAR wanted(name);
            EXPECT_EQ(VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &wanted, &target, &code), 0) << type;
            EXPECT_EQ(code.to_integer(), VELDA_ERROR_PERMISSION) << type;
            EXPECT_EQ(dp->last_error, 24576) << type;
        });
    }
}

TEST_F(Fault, AFileThatMayOnlyBeReadIsReadAndUpdatesGive24576) {
    for (const char *type : {"HL", "UD"}) {
        const std::string name = path(type);
        ASSERT_EQ(create("DATA " + name + " TYPE=" + type), "");
        ASSERT_EQ(open(name, file), 1);
        write("K", "old");
        file = "";
        std::filesystem::permissions(name, std::filesystem::perms(std::string(type) == "UD" ? 0755 : 0644));
        as_nobody([&] {
            ASSERT_EQ(open(name, file), 1) << type;
            EXPECT_EQ(read("K"), (Read{1, "old"})) << type;
            VAR code;
            EXPECT_EQ(write("N", "new", VELDA_REPORT_ERRORS, &code), 3) << type;
            EXPECT_EQ(code.to_integer(), 24576) << type;
            code = "";
            EXPECT_EQ(remove("K", VELDA_REPORT_ERRORS, &code), 3) << type;
            EXPECT_EQ(code.to_integer(), 24576) << type;
            EXPECT_EQ(VLibFNEWCLEARFILE_IIBB(dp, VELDA_REPORT_ERRORS, &file, &code), 3) << type;
            EXPECT_EQ(dp->last_error, 24576) << type;
            const std::string message = message_of_stop([&] { write("N", "new"); });
            EXPECT_EQ(message.substr(0, 35 + name.size()), "Cannot write record 'N' of file '" + name + "':")
                << message;
            EXPECT_NE(message.find("ermission denied"), std::string::npos) << message;
            EXPECT_EQ(read("K").record, "old") << type;
        });
    }
}

TEST_F(Fault, ARecordThatMayNotBeReadIsNotTakenForAMissingOne) {
    make_file("UD");
    write("K", "secret");
    ASSERT_EQ(chmod(path("F/K").c_str(), 0600), 0);
    ASSERT_EQ(chmod(path("F").c_str(), 0755), 0);
    as_nobody([&] {
        const std::string message = message_of_stop([&] { read("K"); });
        EXPECT_EQ(message.substr(0, 34 + path("F").size()), "Cannot read record 'K' of file '" + path("F") + "':")
            << message;
        VAR record, code;
        const VAR key("K");
        EXPECT_EQ(VLibFNEWREAD_IIBBBIB(dp, VELDA_REPORT_ERRORS, &file, &record, &key, 0, &code), 3);
        EXPECT_EQ(code.to_integer(), 24576);
        EXPECT_EQ(record.view(), "");
    });
}

// --- what is no record and no file ---------------------------------------------------------------------------------

TEST_F(Fault, ADirectoryInsideADirectoryFileIsNoRecord) {
    make_file("UD");
    std::filesystem::create_directory(path("F/sub"));
    EXPECT_EQ(read("sub"), (Read{0, ""}));
    write("K", "a");
    VAR list;
    VLibFSELECT_IBBB(dp, &file, &list, nullptr);
    EXPECT_EQ(keys_of(list), (std::vector<std::string>{"K"}));
}

TEST_F(Fault, ADamagedFileIsNotOpened) {
    make_file("HL");
    for (int i = 0; i < 100; ++i) write(i, std::string(200, 'x'));
    file = "";
    {
        std::fstream raw(path("F"), std::ios::in | std::ios::out | std::ios::binary);
        raw.write(std::string(8192, '\x5A').data(), 8192);
    }
    VAR target;
    EXPECT_EQ(open(path("F"), target), 0);
    EXPECT_TRUE(dp->last_error == store::NeedsCheck || dp->last_error == EINVAL) << dp->last_error;
}

TEST_F(Fault, StatementsGoOnWorkingOnAFileThatAnotherHandleDeleted) {
    make_file("HL");
    write("K", "a");
    ASSERT_EQ(remove_file("DATA " + path("F")), "");
    VAR code;
    const int written = write("N", "b", VELDA_REPORT_ERRORS, &code);
    EXPECT_TRUE(written == 1 || (written == 3 && code.to_integer() != 0));
    VAR target;
    EXPECT_EQ(open(path("F"), target), 0);
    ASSERT_EQ(create("DATA " + path("F")), "");
    ASSERT_EQ(open(path("F"), file), 1);
    EXPECT_EQ(read("K").result, 0);
    EXPECT_EQ(write("K", "new"), 1);
}

// --- full disks ----------------------------------------------------------------------------------------------------

class FullDisk : public Fault {
  protected:
    // Writes records until one fails; the code of the failure. What was written before must be there, whole, and after
    // some deletes writing must work again.
    std::int64_t fill() {
        constexpr int Enough = 20000;
        std::map<std::string, std::string> written;
        VAR code;
        for (int i = 0; i < Enough; ++i) {
            const std::string key = "K" + std::to_string(i), record(2000, static_cast<char>('a' + i % 26));
            if (write(key, record, VELDA_REPORT_ERRORS, &code) != 1) break;
            written[key] = record;
        }
        EXPECT_GT(written.size(), 10u);
        for (const auto &[key, record] : written) EXPECT_EQ(read(key), (Read{1, record})) << key;
        make_room(written);
        EXPECT_EQ(write("after", "a"), 1);
        EXPECT_EQ(read("after").record, "a");
        return code.to_integer();
    }
    void make_room(const std::map<std::string, std::string> &written) {
        int deleted = 0;
        for (const auto &[key, record] : written) {
            VAR code;
            if (deleted < 50 && remove(key, VELDA_REPORT_ERRORS, &code) == 1) ++deleted;
        }
        EXPECT_GT(deleted, 0);
    }
};

class FullDiskOfType : public FullDisk, public testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(
    Files, FullDiskOfType, testing::Values("TYPE=HL", "TYPE=HL DURABILITY=LAZY", "TYPE=UD"), [](const auto &files) {
        return std::string(files.index == 0 ? "HashedSync" : files.index == 1 ? "HashedLazy" : "Directory");
    });

TEST_P(FullDiskOfType, AFullDiskIsError28AndLosesNothing) {
    const std::string disk = path("disk");
    const MountedDisk mounted(disk, "2m");
    if (!mounted) GTEST_SKIP() << "cannot mount a small disk";
    in_child([&] {
        ASSERT_EQ(create("DATA " + disk + "/F " + GetParam()), "");
        ASSERT_EQ(open(disk + "/F", file), 1);
        EXPECT_EQ(fill(), ENOSPC);
        file = "";
    });
}

TEST_F(FullDisk, TheMessageNamesFileKeyAndReason) {
    const std::string disk = path("disk");
    const MountedDisk mounted(disk, "1m");
    if (!mounted) GTEST_SKIP() << "cannot mount a small disk";
    in_child([&] {
        ASSERT_EQ(create("DATA " + disk + "/F"), "");
        ASSERT_EQ(open(disk + "/F", file), 1);
        const std::string message = message_of_stop([&] { write("K", std::string(4000000, 'x')); });
        EXPECT_EQ(message.substr(0, 37 + disk.size()), "Cannot write record 'K' of file '" + disk + "/F':") << message;
        EXPECT_NE(message.find("No space left"), std::string::npos) << message;
        file = "";
    });
}

TEST_F(FullDisk, AProcessThatMayNotWriteLargeFilesIsToldSo) {
    make_file("HL");
    in_child([&] {
        const rlimit limit{1 << 20, 1 << 20};
        signal(SIGXFSZ, SIG_IGN);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        VAR code;
        EXPECT_EQ(write("K", "old", VELDA_REPORT_ERRORS, &code), 1);
        EXPECT_EQ(write("K", std::string(4000000, 'x'), VELDA_REPORT_ERRORS, &code), 3);
        EXPECT_EQ(code.to_integer(), EFBIG);
        EXPECT_EQ(read("K").record, "old");
    });
}

}  // namespace
}  // namespace velda::test
