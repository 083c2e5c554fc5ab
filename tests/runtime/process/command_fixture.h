// command_fixture.h - verbs for tests of commands: a scratch system, running a body as a command, and what it printed.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <functional>
#include <string>
#include <vector>

#include "runtime/process/context.h"
#include "runtime/process/facade.h"
#include "runtime/process/output.h"
#include "tests/support/marks.h"
#include "tests/support/scratch.h"

namespace velda::test {

inline void call_body(DP *, void *argument) { (*static_cast<std::function<void()> *>(argument))(); }

class CommandTest : public testing::Test {
  protected:
    CommandTest() { use_scratch_system(); }

    DP *dp = velda_getdp();

    // Runs the body as a command; its exit code.
    int run(std::function<void()> body, const std::string &sentence = "TEST") {
        return velda_run(dp, sentence.c_str(), call_body, &body);
    }

    // The same, and what it printed on the terminal.
    std::string printed_by(std::function<void()> body, int *exit_code = nullptr) {
        std::string output;
        const CaptureOutput capture(dp, output);
        const int code = run(std::move(body));
        if (exit_code) *exit_code = code;
        return output;
    }

  private:
    // One for all tests of the program: a context keeps its port, and with it its system.
    static void use_scratch_system() {
        static const ScratchSystem system;
        setenv("VELDAGLOBALDIR", system.path().c_str(), 1);
        setenv("VBCRELEASEDIR", VELDA_SOURCE_DIR "/share", 1);
    }
};

// Runs `body` in a forked child; its exit status as of waitpid.
inline int status_of_child(const std::function<void()> &body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
    }
    return status;
}

inline std::string returned(const VAR &cell) { return shown(cell.view()); }

}  // namespace velda::test
