// command_job.cpp - a print job as the input of a shell command.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <vector>

#include "runtime/base/write_fully.h"
#include "runtime/print/job.h"

extern char **environ;

namespace velda {
namespace {

constexpr int CommandFailed = EIO;

// Blocks SIGPIPE in this thread while it lives, and takes back one that a write has raised: a command that reads no
// further is an error of the job, not the end of the process.
class BrokenPipeIsAnError {
  public:
    BrokenPipeIsAnError() {
        sigemptyset(&broken_pipe_);
        sigaddset(&broken_pipe_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &broken_pipe_, &before_);
    }
    ~BrokenPipeIsAnError() {
        const timespec at_once{0, 0};
        if (!sigismember(&before_, SIGPIPE)) sigtimedwait(&broken_pipe_, nullptr, &at_once);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    BrokenPipeIsAnError(const BrokenPipeIsAnError &) = delete;
    BrokenPipeIsAnError &operator=(const BrokenPipeIsAnError &) = delete;

  private:
    sigset_t broken_pipe_;
    sigset_t before_;
};

class CommandJob : public PrintJob {
  public:
    CommandJob(int pipe, pid_t child, std::string command) : pipe_(pipe), child_(child), command_(std::move(command)) {}
    ~CommandJob() override {
        if (child_ > 0) wait_for_command();
    }

    Result<void> write(std::string_view bytes) override {
        if (pipe_ < 0) return {};
        const BrokenPipeIsAnError guard;
        const int error = write_fully(pipe_, bytes);
        if (error == 0) return {};
        close_pipe();
        return system_error(error, "cannot write to print command", command_);
    }

    Result<void> finish() override {
        const int status = wait_for_command();
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
        const std::string reason = WIFEXITED(status) ? "exit code " + std::to_string(WEXITSTATUS(status))
                                                     : "killed by signal " + std::to_string(WTERMSIG(status));
        return Error{CommandFailed, "print command '" + command_ + "' failed: " + reason};
    }

  private:
    void close_pipe() {
        if (pipe_ >= 0) close(pipe_);
        pipe_ = -1;
    }
    // Where the process's owner ignores the ends of its children there is no status to be had: that is no failure.
    int wait_for_command() {
        close_pipe();
        int status = 0;
        while (waitpid(child_, &status, 0) < 0 && errno == EINTR) {
        }
        child_ = -1;
        return status;
    }

    int pipe_;
    pid_t child_;
    std::string command_;
};

std::vector<std::string> command_environment(const PrintJobOwner &owner) {
    std::vector<std::string> variables;
    for (char **variable = environ; *variable; ++variable) variables.emplace_back(*variable);
    variables.push_back("VELDAPRINTPORT=" + std::to_string(owner.port));
    variables.push_back("VELDAPRINTUNIT=" + std::to_string(owner.unit));
    return variables;
}

// Starts the shell with `input` as its standard input. Gives 0 or the error number.
int start_shell(const std::string &command, const PrintJobOwner &owner, int input, pid_t &child) {
    std::vector<std::string> variables = command_environment(owner);
    std::vector<char *> addresses;
    for (std::string &variable : variables) addresses.push_back(variable.data());
    addresses.push_back(nullptr);
    std::string words[] = {"sh", "-c", command};
    char *const arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    const int error = posix_spawn(&child, "/bin/sh", &actions, nullptr, arguments, addresses.data());
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

}  // namespace

Result<std::unique_ptr<PrintJob>> begin_command_job(const std::string &command, const PrintJobOwner &owner) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return system_error(errno, "cannot start print command", command);
    pid_t child = -1;
    const int error = start_shell(command, owner, ends[0], child);
    close(ends[0]);
    if (error != 0) {
        close(ends[1]);
        return system_error(error, "cannot start print command", command);
    }
    return std::unique_ptr<PrintJob>(std::make_unique<CommandJob>(ends[1], child, command));
}

}  // namespace velda
