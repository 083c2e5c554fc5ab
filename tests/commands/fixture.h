// fixture.h - runs the program `velda` as a user does, in a scratch account of a scratch system.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/scratch.h"

namespace velda::test {

struct Ran {
    int code = -1;
    std::string output;  // standard output and standard error, in the order written
};

class CommandTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directory(account_);
        previous_ = std::filesystem::current_path();
        std::filesystem::current_path(account_);
    }
    void TearDown() override { std::filesystem::current_path(previous_); }

    static std::string program() { return VELDA_BINARY_DIR "/bin/velda"; }

    // Runs velda with these words; `input` is its standard input.
    Ran velda(const std::vector<std::string> &words, const std::string &input = "") {
        return run(program(), words, input);
    }

    Ran run(const std::string &path, const std::vector<std::string> &words, const std::string &input = "") {
        const std::string input_path = system_ / "input";
        std::ofstream(input_path, std::ios::binary) << input;
        int output[2];
        EXPECT_EQ(pipe(output), 0);
        const pid_t child = fork();
        if (child == 0) exec_child(path, words, input_path, output[1]);
        close(output[1]);
        Ran ran;
        char buffer[65536];
        for (ssize_t got; (got = read(output[0], buffer, sizeof buffer)) > 0;) ran.output.append(buffer, got);
        close(output[0]);
        int status = 0;
        waitpid(child, &status, 0);
        ran.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return ran;
    }

    // Makes a file with records, through a directory file that the test writes by hand.
    void make_file(const std::string &name, std::initializer_list<std::pair<std::string, std::string>> records) {
        ASSERT_EQ(velda({"CREATE-FILE", "DURABILITY=LAZY", name}).code, 0);
        std::filesystem::create_directory("by.hand");
        for (const auto &[key, record] : records) std::ofstream("by.hand/" + key, std::ios::binary) << record;
        ASSERT_EQ(velda({"COPY", "by.hand", "*", "(Q"}, "(" + name + "\n").code, 0);
        std::filesystem::remove_all("by.hand");
    }

    ScratchSystem system_;
    std::string account_ = system_ / "account";
    std::filesystem::path previous_;

  private:
    [[noreturn]] static void exec_child(const std::string &path, const std::vector<std::string> &words,
                                        const std::string &input_path, int output) {
        if (!std::freopen(input_path.c_str(), "rb", stdin)) _exit(126);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        std::vector<char *> arguments = {const_cast<char *>(path.c_str())};
        for (const std::string &word : words) arguments.push_back(const_cast<char *>(word.c_str()));
        arguments.push_back(nullptr);
        execv(path.c_str(), arguments.data());
        _exit(127);
    }
};

}  // namespace velda::test
