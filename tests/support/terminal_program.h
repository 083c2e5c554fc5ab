// terminal_program.h - runs a piece of logic as a program of its own: on a pseudo-terminal, or between pipes.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "runtime/process/process.h"

namespace velda::test {

using Program = std::function<void(DP *)>;

inline constexpr auto PatienceOfTests = std::chrono::seconds(20);

// True as soon as `condition` holds; false when it never does.
inline bool eventually(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + PatienceOfTests;
    while (std::chrono::steady_clock::now() < end) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return condition();
}

// In the child process: runs the program as one command and ends with its exit code.
[[noreturn]] inline void run_and_exit(const Program &program) {
    setenv("VBCRELEASEDIR", VELDA_SOURCE_DIR "/share", 1);
    Program body = program;
    const int code = velda_run(
        velda_getdp(), "PROGRAM", [](DP *dp, void *argument) { (*static_cast<Program *>(argument))(dp); }, &body);
    std::exit(code);
}

// Exit code of an ended child, 128 and the number of the signal that killed it.
inline int code_of(int status) { return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status); }

// A program on a terminal of its own, which this object is the user of.
class OnTerminal {
  public:
    struct Setup {
        const char *type = "dumb";  // no sequences but what the program itself writes
        unsigned short columns = 80;
        unsigned short lines = 24;
    };

    explicit OnTerminal(const Program &program) : OnTerminal(Setup(), program) {}
    OnTerminal(const Setup &setup, const Program &program) {
        std::fflush(nullptr);
        const winsize size{setup.lines, setup.columns, 0, 0};
        process_ = forkpty(&terminal_, nullptr, nullptr, &size);
        if (process_ < 0) throw std::runtime_error("no pseudo-terminal");
        if (process_ > 0) return;
        setenv("TERM", setup.type, 1);
        unsetenv("COLUMNS");
        unsetenv("LINES");
        run_and_exit(program);
    }
    ~OnTerminal() {
        if (process_ > 0) kill(process_, SIGKILL);
        if (process_ > 0) waitpid(process_, nullptr, 0);
        hang_up();
    }
    OnTerminal(const OnTerminal &) = delete;
    OnTerminal &operator=(const OnTerminal &) = delete;

    void type(std::string_view keys) {
        ASSERT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Reads on until the program has shown `text`; gives what stood before it. A text that never comes fails the test.
    std::string until(std::string_view text) {
        std::size_t at;
        while ((at = unread_.find(text)) == unread_.npos)
            if (!read_more()) {
                ADD_FAILURE() << "the terminal never showed \"" << text << "\", but \"" << unread_ << "\"";
                return unread_;
            }
        const std::string before = unread_.substr(0, at);
        unread_.erase(0, at + text.size());
        return before;
    }

    // The same, and then waits until the program reads keys: what is typed now is not echoed by the kernel.
    std::string prompted(std::string_view text) {
        const std::string before = until(text);
        EXPECT_TRUE(eventually([this] { return !has_user_settings(); })) << "the program does not read keys";
        return before;
    }

    // What the program shows until it ends.
    std::string rest() {
        while (read_more()) {
        }
        return std::exchange(unread_, {});
    }

    int exit_code() {
        rest();
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = -1;
        return code_of(status);
    }

    void resize(unsigned short columns, unsigned short lines) {
        const winsize size{lines, columns, 0, 0};
        ioctl(terminal_, TIOCSWINSZ, &size);
    }
    void send_signal(int number) { kill(process_, number); }
    void hang_up() {
        if (terminal_ >= 0) close(terminal_);
        terminal_ = -1;
    }

    // Whether the kernel echoes and gathers lines, as the user's own settings say.
    bool has_user_settings() const {
        termios settings{};
        tcgetattr(terminal_, &settings);
        constexpr tcflag_t Usual = ECHO | ICANON | ISIG;
        return (settings.c_lflag & Usual) == Usual && (settings.c_iflag & ICRNL);
    }
    bool is_stopped() const {
        siginfo_t state{};
        return waitid(P_PID, static_cast<id_t>(process_), &state, WSTOPPED | WNOHANG | WNOWAIT) == 0 &&
               state.si_pid != 0;
    }

  private:
    bool read_more() {
        if (terminal_ < 0) return false;
        pollfd waiting{terminal_, POLLIN, 0};
        const auto patience = std::chrono::duration_cast<std::chrono::milliseconds>(PatienceOfTests).count();
        if (poll(&waiting, 1, static_cast<int>(patience)) != 1) return false;
        char buffer[4096];
        const ssize_t got = read(terminal_, buffer, sizeof buffer);
        if (got > 0) unread_.append(buffer, static_cast<std::size_t>(got));
        return got > 0;
    }

    pid_t process_ = -1;
    int terminal_ = -1;
    std::string unread_;
};

struct Ending {
    std::string output;
    int exit_code;
};

// Runs a program without terminal: `input` is what it can read, and the result is what it wrote.
inline Ending run_on_pipes(std::string_view input, const Program &program) {
    std::fflush(nullptr);
    int in[2], out[2];
    if (pipe(in) != 0 || pipe(out) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(out[1], STDERR_FILENO);
        for (const int end : {in[0], in[1], out[0], out[1]}) close(end);
        unsetenv("COLUMNS");
        unsetenv("LINES");
        unsetenv("TERM");
        run_and_exit(program);
    }
    close(in[0]);
    close(out[1]);
    if (write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size()))
        throw std::runtime_error("the pipe took too little");
    close(in[1]);
    Ending ending{};
    char buffer[4096];
    ssize_t got;
    while ((got = read(out[0], buffer, sizeof buffer)) > 0) ending.output.append(buffer, static_cast<std::size_t>(got));
    close(out[0]);
    int status = 0;
    waitpid(child, &status, 0);
    ending.exit_code = code_of(status);
    return ending;
}

}  // namespace velda::test
