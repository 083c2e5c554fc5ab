// Raw files: bytes, lines, status, record locks, and what lock reports know a file by.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "runtime/file/file.h"
#include "runtime/lock/record_lock.h"
#include "runtime/process/process.h"
#include "runtime/rawio/rawio.h"
#include "runtime/value/value.h"
#include "tests/support/scratch.h"
#include "tests/support/session.h"

namespace velda::test {
namespace {

class RawFile : public testing::Test {
  protected:
    RawFile() : file(VRunFileIOOpen(dp, path("raw").c_str(), O_RDWR | O_CREAT, 0)) {}
    ~RawFile() override { VRunFileIOClose(dp, file); }

    std::string path(const std::string &name) const { return directory / name; }
    int write(std::int64_t offset, const std::string &bytes) {
        std::size_t done = 0;
        const int result = VRunFileIOWrite(dp, file, offset, bytes.data(), bytes.size(), &done);
        EXPECT_EQ(done, bytes.size());
        return result;
    }
    // The bytes that could be read, and the result in `result`.
    std::string read(std::int64_t offset, std::size_t count, int &result) {
        std::string bytes(count, '?');
        std::size_t done = 0;
        result = VRunFileIORead(dp, file, offset, bytes.data(), count, &done);
        return bytes.substr(0, done);
    }
    // The next line in brackets; "end" behind the last.
    std::string line() {
        const char *bytes = nullptr;
        std::size_t length = 0;
        if (VRunFileIOGetLine(dp, file, &bytes, &length) != 0) return errno == ENODATA ? "end" : "error";
        EXPECT_EQ(bytes[length], '\0');
        return "[" + std::string(bytes, length) + "]";
    }
    int lock(DP *owner, const std::string &key, int mode) {
        return VRunFileIOLockRecord(owner, file, key.data(), key.size(), mode);
    }

    ScratchSystem directory;
    const ScratchSession session;
    DP *const dp = session;
    VRunFile *file;
};

TEST_F(RawFile, BytesAreReadWhereTheyWereWritten) {
    int result = -1;
    EXPECT_EQ(write(0, "0123456789"), 0);
    EXPECT_EQ(write(5, "abc"), 0);
    EXPECT_EQ(read(3, 5, result), "34abc");
    EXPECT_EQ(result, 0);
}

TEST_F(RawFile, AReadThatMeetsTheEndGivesWhatThereIsAndENODATA) {
    int result = 0;
    write(0, "0123");
    EXPECT_EQ(read(2, 10, result), "23");
    EXPECT_EQ(result, ENODATA);
    EXPECT_EQ(errno, ENODATA);
    EXPECT_EQ(read(100, 1, result), "");
    EXPECT_EQ(result, ENODATA);
}

TEST_F(RawFile, LinesEndWithALineFeedAndTheLastNeedsNone) {
    write(0, "one\ntwo\r\n\nfour");
    EXPECT_EQ(line(), "[one]");
    EXPECT_EQ(line(), "[two]");
    EXPECT_EQ(line(), "[]");
    EXPECT_EQ(line(), "[four]");
    EXPECT_EQ(line(), "end");
    EXPECT_EQ(line(), "end");
}

TEST_F(RawFile, LinesOfAnyLengthAreReadWhole) {
    std::string content;
    for (const std::size_t length : {70000u, 1u, 65535u, 65536u, 200000u})
        content += std::string(length, static_cast<char>('a' + length % 26)) + "\n";
    write(0, content);
    for (const std::size_t length : {70000u, 1u, 65535u, 65536u, 200000u})
        EXPECT_EQ(line(), "[" + std::string(length, static_cast<char>('a' + length % 26)) + "]") << length;
    EXPECT_EQ(line(), "end");
}

TEST_F(RawFile, AnEmptyFileHasNoLine) { EXPECT_EQ(line(), "end"); }

TEST_F(RawFile, TheHandleTellsWhatItStandsFor) {
    struct stat status;
    ASSERT_EQ(stat(path("raw").c_str(), &status), 0);
    EXPECT_EQ(VRunFileIOGetIno(dp, file), status.st_ino);
    EXPECT_EQ(VRunFileIOGetDevice(dp, file), status.st_dev);
    EXPECT_EQ(std::string(VRunFileIOGetFullPath(dp, file)), path("raw"));
    EXPECT_GE(VRunFileIOGetFd(dp, file), 0);
    write(0, "12345");
    VRunFileStatus told;
    EXPECT_EQ(VRunFileIOGetStatus(dp, file, &told), 0);
    EXPECT_EQ(told.size_bytes, 5);
    EXPECT_EQ(told.inode, status.st_ino);
    EXPECT_TRUE(S_ISREG(told.mode));
    EXPECT_EQ(told.links, 1u);
    EXPECT_EQ(VRunFileIOSync(dp, file), 0);
}

TEST_F(RawFile, APathMayHaveEitherSlashAndIsMadeFull) {
    std::filesystem::create_directory(path("sub"));
    VRunFile *const made = VRunFileIOOpen(dp, (directory.path() + "\\sub\\..\\sub\\x").c_str(), O_RDWR | O_CREAT, 0640);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(std::string(VRunFileIOGetFullPath(dp, made)), path("sub/x"));
    VRunFileIOClose(dp, made);
    struct stat status;
    ASSERT_EQ(stat(path("sub/x").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST_F(RawFile, WhatCannotBeOpenedGivesNullAndTheReason) {
    EXPECT_EQ(VRunFileIOOpen(dp, path("missing").c_str(), O_RDONLY, 0), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(VRunFileIOOpen(dp, directory.path().c_str(), O_RDONLY, 0), nullptr);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(VRunFileIOOpen(dp, path("raw").c_str(), O_RDWR | O_CREAT | O_EXCL, 0), nullptr);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(VRunFileIOClose(dp, nullptr), 0);
}

TEST_F(RawFile, AWriteThatIsCutShortTellsHowMuchWasWritten) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit limit{4096, 4096};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        const std::string bytes(10000, 'x');
        std::size_t done = 0;
        const int result = VRunFileIOWrite(dp, file, 0, bytes.data(), bytes.size(), &done);
        _exit(result == EFBIG && done == 4096 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(RawFile, AFileThatIsOpenForReadingIsNotWritten) {
    VRunFile *const reader = VRunFileIOOpen(dp, path("raw").c_str(), O_RDONLY, 0);
    std::size_t done = 1;
    EXPECT_EQ(VRunFileIOWrite(dp, reader, 0, "x", 1, &done), EBADF);
    EXPECT_EQ(done, 0u);
    VRunFileIOClose(dp, reader);
}

// --- locks ---------------------------------------------------------------------------------------------------------

TEST_F(RawFile, ALockIsTakenTriedAndReleased) {
    DP *const other = velda_new_context();
    EXPECT_EQ(lock(dp, "vlogdup*1", 1), 0);
    EXPECT_EQ(lock(other, "vlogdup*1", 2), EWOULDBLOCK);
    EXPECT_EQ(lock(other, "vlogdup*2", 2), 0);
    EXPECT_EQ(lock(dp, "vlogdup*1", 4), 0);
    EXPECT_EQ(lock(dp, "vlogdup*1", 4), ENOENT);
    EXPECT_EQ(lock(other, "vlogdup*1", 2), 0);
    EXPECT_EQ(lock(dp, "vlogdup*1", 3), EINVAL);
    velda_free_context(other);
}

TEST_F(RawFile, ALockStaysWhenTheHandleCloses) {
    DP *const other = velda_new_context();
    EXPECT_EQ(lock(dp, "K", 1), 0);
    VRunFileIOClose(dp, file);
    file = VRunFileIOOpen(dp, path("raw").c_str(), O_RDWR, 0);
    EXPECT_EQ(lock(other, "K", 2), EWOULDBLOCK);
    EXPECT_EQ(lock(dp, "K", 4), 0);
    velda_free_context(other);
}

TEST_F(RawFile, ALockOfADeadProcessCanBeHad) {
    const pid_t child = fork();
    if (child == 0) {
        lock(velda_getdp(), "K", 1);
        raise(SIGKILL);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ(lock(dp, "K", 2), 0);
    EXPECT_EQ(lock(dp, "K", 4), 0);
}

TEST_F(RawFile, TheLockHashIsTheOneOfTheLockTable) {
    EXPECT_EQ(VRunFileIOLockHash(dp, "key", 3), static_cast<std::int64_t>(lock_hash("key")));
    EXPECT_NE(VRunFileIOLockHash(dp, "key", 3), VRunFileIOLockHash(dp, "key", 2));
}

TEST_F(RawFile, ADatabaseFilesLockInfoIsInodeDeviceAndHash) {
    const VAR name(path("F")), key("K"), operands("DATA\xFE" + path("F"));
    VAR opened, inode, device, hash;
    ASSERT_EQ(velda_create_file(dp, &operands, nullptr), 1);
    ASSERT_EQ(VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, &opened, nullptr), 1);
    EXPECT_EQ(VELDAGetSingleLockInfo(dp, &opened, &key, &inode, &device, &hash), 0);
    struct stat status;
    ASSERT_EQ(stat(path("F").c_str(), &status), 0);
    EXPECT_EQ(inode.to_integer(), static_cast<std::int64_t>(status.st_ino));
    EXPECT_EQ(device.to_integer(), static_cast<std::int64_t>(status.st_dev));
    EXPECT_EQ(hash.to_integer(), VRunFileIOLockHash(dp, "K", 1));
    EXPECT_EQ(hash.form, VELDA_FORM_INTEGER);
}

TEST_F(RawFile, ACellThatIsNoFileHasNoLockInfo) {
    const VAR text("text"), key("K");
    VAR inode("before"), device("before"), hash("before");
    EXPECT_EQ(VELDAGetSingleLockInfo(dp, &text, &key, &inode, &device, &hash), EINVAL);
    EXPECT_EQ(inode.view(), "before");
}

TEST_F(RawFile, APathsLockInfoIsInodeAndDevice) {
    struct stat status;
    ASSERT_EQ(stat(path("raw").c_str(), &status), 0);
    const VAR here(directory.path() + "\\raw"), missing(path("missing"));
    VAR inode, device;
    EXPECT_EQ(VELDAGetSingleLockInfoFlatFile(dp, &here, &inode, &device), 0);
    EXPECT_EQ(inode.to_integer(), static_cast<std::int64_t>(status.st_ino));
    EXPECT_EQ(device.to_integer(), static_cast<std::int64_t>(status.st_dev));
    inode = "before";
    EXPECT_EQ(VELDAGetSingleLockInfoFlatFile(dp, &missing, &inode, &device), ENOENT);
    EXPECT_EQ(inode.view(), "before");
}

}  // namespace
}  // namespace velda::test
