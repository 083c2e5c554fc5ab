// fixture.h - a journal in a scratch system, and its operations run as those of a command "vlogadmin".
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "journal/journal.h"
#include "runtime/vutil.h"
#include "tests/support/marks.h"
#include "tests/support/scratch.h"
#include "tests/support/session.h"

namespace velda::test {

class LoggerTest : public ::testing::Test {
  protected:
    LoggerTest() {
        unsetenv("VBCLOGCONFDIR");
        unsetenv("MULTIAPP");
    }

    // The configuration, made as by the first use.
    VELDALoggerConfig &defined() {
        EXPECT_EQ(VELDALoggerGetDefinition(dp), 0);
        return *VediLoggerInit(dp, 1);
    }

    // Runs an operation as part of the command; what it printed to standard error is in `said`.
    int admin(const std::function<int()> &operation) {
        struct Run {
            const std::function<int()> &operation;
            int result = -99;
        } run{operation};
        ::testing::internal::CaptureStderr();
        exit_code = velda_run(
            dp, "vlogadmin test",
            [](DP *, void *argument) {
                auto &the_run = *static_cast<Run *>(argument);
                the_run.result = the_run.operation();
            },
            &run);
        said = ::testing::internal::GetCapturedStderr();
        return run.result;
    }

    int set_file(int set, int file, const std::string &path, int mode = 1) {
        return admin([&] {
            const VAR name(path);
            return VELDALoggerSetFile(dp, set, file, mode, &name);
        });
    }

    int swap(int set) {
        return admin([&] { return VELDALoggerSwapLog(dp, set); });
    }

    static std::string content(const std::string &path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // The texts of the administration log since the last call, without what stands before them.
    std::string logged() {
        const std::string all = content(system_ / "config/vediLoggerAdminLog").substr(log_read_);
        log_read_ += all.size();
        std::string texts;
        for (std::size_t at = 0; at < all.size();) {
            const std::size_t end = all.find('\n', at);
            const std::string line = all.substr(at, end - at);
            const std::size_t text = line.find(" severity 0: ");
            texts += (texts.empty() ? "" : "|") + (text == std::string::npos ? line : line.substr(text + 13));
            at = end + 1;
        }
        return texts;
    }

    ScratchSystem system_;
    ScratchSession dp;
    std::string said;
    int exit_code = -1;  // of the last command

  private:
    std::size_t log_read_ = 0;
};

}  // namespace velda::test
