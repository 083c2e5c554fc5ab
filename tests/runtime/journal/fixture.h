// fixture.h - a journal configuration in a scratch system, as the logic would have written it.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "runtime/journal/journal.h"
#include "runtime/process/process.h"
#include "tests/support/scratch.h"
#include "tests/support/session.h"

namespace velda::test {

class JournalTest : public ::testing::Test {
  protected:
    JournalTest() { unsetenv("VBCLOGCONFDIR"); }
    ~JournalTest() override { unsetenv("VBCLOGCONFDIR"); }

    std::string config_path() const { return system_ / "config/vediLoggerConfig"; }
    std::string log_path() const { return system_ / "config/vediLoggerAdminLog"; }

    VELDALoggerConfig plain_record() const {
        VELDALoggerConfig record = {};
        std::memcpy(record.magic, VELDA_LOGGER_MAGIC, 8);
        record.recordSize = sizeof record;
        record.formatVersion = 3;
        record.byteOrderMark = VELDA_LOGGER_BYTE_ORDER;
        std::strncpy(record.adminLogPath, log_path().c_str(), 191);
        return record;
    }

    static void write_record(const std::string &path, const VELDALoggerConfig &record) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(&record), sizeof record);
    }

    VELDALoggerConfig *mapped() {
        write_record(config_path(), plain_record());
        return VediLoggerInit(dp, 1);
    }

    static std::string content(const std::string &path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    ScratchSystem system_;
    ScratchSession dp;
};

// Runs a body in a child process and gives its exit code, 128 and the signal when it was killed.
template <class Body>
int in_child(Body body) {
    const pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace velda::test
