// command.h - commands as tests run them: in this process, or as a program of its own with input, output and exit code.
#pragma once

#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "runtime/vutil.h"
#include "tests/support/marks.h"
#include "tests/support/scratch.h"
#include "tests/support/terminal_program.h"

namespace velda::test {

// The system of the test program: made before main, so before the first call of the runtime.
inline const ScratchSystem TestSystem;

// Runs `body` as the command `sentence` in this process: its exit code.
inline int run_command(const std::string &sentence, const Program &body) {
    Program run = body;
    return velda_run(
        velda_getdp(), sentence.c_str(), [](DP *dp, void *argument) { (*static_cast<Program *>(argument))(dp); }, &run);
}

// A program for run_on_pipes and OnTerminal: stacks the lines, then runs `body` as the command `sentence`.
inline Program command(const std::string &sentence, const Program &body, const std::vector<std::string> &stacked = {}) {
    return [=](DP *) {
        for (const std::string &line : stacked) stack_data(line);
        if (const int code = run_command(sentence, body)) exit_command(code);
    };
}

// Makes a file of type HL, or UD with " TYPE=UD" in `options`, in the current directory; both parts of it.
inline void make_file(const std::string &name, const std::string &options = "") {
    const auto failure = create_file(convert(name + options, " ", AM));
    ASSERT_FALSE(failure) << failure->str();
}

inline void put(const std::string &file_name, const std::string &key, std::string_view visible_record) {
    File file;
    ASSERT_TRUE(file.open(file_name)) << file_name;
    file.write(key, marks(visible_record));
}

// The record with visible marks; "(none)" when there is none.
inline std::string get(const std::string &file_name, const std::string &key) {
    File file;
    if (!file.open(file_name)) return "(no file)";
    const auto record = file.read(key);
    return record ? shown(record->view()) : "(none)";
}

inline void write_host_file(const std::string &path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// A test that works in a directory of its own, which is the current one.
class InScratchDirectory : public ::testing::Test {
  protected:
    InScratchDirectory() : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(directory_.path());
        setenv("HOME", directory_.path().c_str(), 1);
    }
    ~InScratchDirectory() override { std::filesystem::current_path(before_); }

    const ScratchDirectory directory_;

  private:
    const std::filesystem::path before_;
};

// Emulation settings for the commands that a test runs: lines such as "upper_case_options = 1".
inline void use_emulation(const ScratchDirectory &directory, const std::string &settings) {
    std::filesystem::copy_file(VELDA_SOURCE_DIR "/share/messages", directory / "messages",
                               std::filesystem::copy_options::overwrite_existing);
    write_host_file(directory / "emulation", "default:\n" + settings + "\n");
    setenv("VBCRELEASEDIR", directory.path().c_str(), 1);
}

}  // namespace velda::test
