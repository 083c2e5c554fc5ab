#include "runtime/journal/notify.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <mutex>
#include <vector>

extern char **environ;

namespace velda::journal {

namespace {

// Programs that were started and may still run. Each is asked after at the next start, so that no more ended processes
// remain than entries were made at once.
class StartedPrograms {
  public:
    void add(pid_t program) {
        const std::lock_guard guard(mutex_);
        std::erase_if(programs_, [](pid_t started) { return waitpid(started, nullptr, WNOHANG) != 0; });
        programs_.push_back(program);
    }

  private:
    std::mutex mutex_;
    std::vector<pid_t> programs_;
};

StartedPrograms &started_programs() {
    static auto &programs = *new StartedPrograms;
    return programs;
}

// A process with default signals, in a session of its own, and nothing to read or write.
class SpawnSettings {
  public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
    }
    ~SpawnSettings() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    SpawnSettings(const SpawnSettings &) = delete;
    SpawnSettings &operator=(const SpawnSettings &) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace

void start_notify_program(const std::string &command, int severity, const std::string &entry) {
    std::string words[] = {"sh", "-c", command + " \"$@\"", "sh", std::to_string(severity), entry};
    std::vector<char *> arguments;
    for (std::string &word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const SpawnSettings settings;
    pid_t program = 0;
    if (posix_spawn(&program, "/bin/sh", &settings.actions, &settings.attributes, arguments.data(), environ) == 0)
        started_programs().add(program);
}

}  // namespace velda::journal
