#include "runtime/process/external_command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <utility>

#include "runtime/base/write_fully.h"
#include "runtime/process/context.h"
#include "runtime/process/data_stack.h"
#include "runtime/process/interrupt.h"
#include "runtime/process/output.h"
#include "runtime/process/stop.h"
#include "runtime/terminal/device.h"

extern char **environ;

namespace velda {
namespace {

constexpr int CannotStartCode = 126;

// Names the descriptor of a file in memory, of that name, in which a started command of this system leaves its
// messages.
constexpr const char *MessagesVariable = "VELDA_RETURN_MESSAGES";
constexpr const char *MessagesName = "velda-messages";

class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { close(); }

    int number() const { return number_; }
    bool open() const { return number_ >= 0; }
    void close() {
        if (number_ >= 0) ::close(number_);
        number_ = -1;
    }

  private:
    int number_;
};

std::string read_from_start(int file) {
    std::string content;
    char buffer[4096];
    off_t at = 0;
    for (ssize_t got; (got = pread(file, buffer, sizeof buffer, at)) > 0; at += got)
        content.append(buffer, static_cast<std::size_t>(got));
    return content;
}

// A file in memory that a started program inherits.
Descriptor memory_file(const char *name) { return Descriptor(memfd_create(name, MFD_CLOEXEC)); }

std::string joined_lines(const std::deque<std::string> &lines) {
    std::string text;
    for (const std::string &line : lines) text += line + "\n";
    return text;
}

// The lines that the caller stacked, as a file to be read from its start; closed when there are none. They are the
// program's now. 0 or an error number.
int open_stacked_input(DP *dp, Descriptor &input) {
    DataStack &stack = dp->state<DataStack>();
    DataStack callers = stack.hand_over();
    const std::string text = joined_lines(stack.lines);
    stack.take_back(std::move(callers));
    if (text.empty()) return 0;
    input = memory_file("velda-input");
    if (!input.open()) return errno;
    if (const int error = write_fully(input.number(), text)) return error;
    return lseek(input.number(), 0, SEEK_SET) == 0 ? 0 : errno;
}

// The arguments of posix_spawn that are not the program's own.
class SpawnSetup {
  public:
    SpawnSetup() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        // What this process ignores for itself is not the program's business.
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup &) = delete;
    SpawnSetup &operator=(const SpawnSetup &) = delete;

    void redirect(int from, int to) { posix_spawn_file_actions_adddup2(&actions, from, to); }

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

std::vector<char *> pointers(const std::vector<std::string> &texts) {
    std::vector<char *> list;
    for (const std::string &text : texts) list.push_back(const_cast<char *>(text.c_str()));
    list.push_back(nullptr);
    return list;
}

// This process's environment, in which the program finds where to return its messages.
std::vector<std::string> program_environment(int messages) {
    const std::string prefix = std::string(MessagesVariable) + "=";
    std::vector<std::string> variables;
    for (char **variable = environ; *variable; ++variable)
        if (!std::string_view(*variable).starts_with(prefix)) variables.emplace_back(*variable);
    if (messages >= 0) variables.push_back(prefix + std::to_string(messages));
    return variables;
}

// A program that runs, with the pipe that its output comes through when that is captured.
struct RunningProgram {
    pid_t process = -1;
    Descriptor handle;  // readable when the program has ended
    Descriptor output;
    Descriptor messages;
};

// 0, or the number of the error for which the program could not be started.
int start_program(DP *dp, const std::string &path, const std::vector<std::string> &words, RunningProgram &program) {
    SpawnSetup setup;
    flush_output(dp);
    Descriptor input;
    if (const int error = open_stacked_input(dp, input)) return error;
    if (input.open()) setup.redirect(input.number(), STDIN_FILENO);
    Descriptor output_end;
    if (output_is_captured(dp)) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return errno;
        program.output = Descriptor(ends[0]);
        output_end = Descriptor(ends[1]);
        setup.redirect(ends[1], STDOUT_FILENO);
        setup.redirect(ends[1], STDERR_FILENO);
    }
    program.messages = memory_file(MessagesName);
    // Redirecting a descriptor to itself is how a program is made to inherit it.
    if (program.messages.open()) setup.redirect(program.messages.number(), program.messages.number());

    const std::vector<std::string> environment = program_environment(program.messages.number());
    const int error = posix_spawn(&program.process, path.c_str(), &setup.actions, &setup.attributes,
                                  pointers(words).data(), pointers(environment).data());
    if (error != 0) return error;
    program.handle = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, program.process, 0)));
    assert(program.handle.open());
    return 0;
}

// Brings what the program has written so far to write_output(). False at the end of its output.
bool take_output(DP *dp, int output) {
    char buffer[16 * 1024];
    const ssize_t got = read(output, buffer, sizeof buffer);
    if (got > 0) write_output(dp, std::string_view(buffer, static_cast<std::size_t>(got)));
    return got > 0 || (got < 0 && errno == EINTR);
}

// What this process is told to do while the program has its place, the program is told too.
class SignalForwarder {
  public:
    explicit SignalForwarder(pid_t process) : process_(process) {}

    void look() {
        if (const unsigned breaks = sent_break_count(); breaks != seen_breaks_) {
            seen_breaks_ = breaks;
            kill(process_, SIGINT);
        }
        if (const int signal_number = session_end_signal(); signal_number != 0 && !end_forwarded_) {
            end_forwarded_ = true;
            kill(process_, signal_number);
        }
    }

  private:
    pid_t process_;
    unsigned seen_breaks_ = sent_break_count();
    bool end_forwarded_ = false;
};

// A signal that comes just before a wait begins does not end it: waits look for signals as often as this.
constexpr int LookMilliseconds = 200;

// Brings the program's output to write_output() until it has ended. What it left running in the background may hold the
// pipe open; that is not waited for.
void follow_program(DP *dp, RunningProgram &program) {
    SignalForwarder forwarder(program.process);
    pollfd waiting[] = {{program.handle.number(), POLLIN, 0}, {program.output.number(), POLLIN, 0}};
    for (bool ended = false;;) {
        const int ready = poll(waiting, 2, ended ? 0 : LookMilliseconds);
        if (ready < 0 && errno != EINTR) return;
        forwarder.look();
        if (ready > 0 && waiting[1].revents) {
            if (!take_output(dp, program.output.number())) waiting[1].fd = -1;
        } else if (ended) {
            return;
        } else {
            ended = ready > 0 && waiting[0].revents;
        }
    }
}

int exit_code_of(pid_t process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// The variable may have come through programs that closed the descriptor, and it may be another file's now.
bool is_messages_file(int file) {
    char target[64];
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    const std::string wanted = std::string("/memfd:") + MessagesName;
    return length > 0 && std::string_view(target, static_cast<std::size_t>(length)).starts_with(wanted);
}

std::vector<std::string> split_messages(std::string_view list) {
    std::vector<std::string> messages;
    while (!list.empty()) {
        const std::size_t mark = std::min(list.find(AM), list.size());
        messages.emplace_back(list.substr(0, mark));
        list.remove_prefix(std::min(mark + 1, list.size()));
    }
    return messages;
}

bool is_executable(const std::string &path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

std::optional<std::string> find_in_directories(const char *directories, const std::string &name) {
    if (!directories) return std::nullopt;
    for (std::string_view rest = directories; !rest.empty();) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        const std::string path = std::string(rest.substr(0, end)) + "/" + name;
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (path.front() == '/' && end == 0) continue;  // an empty entry
        if (is_executable(path)) return path;
    }
    return std::nullopt;
}

}  // namespace

std::vector<std::string> program_words(std::string_view command_line) {
    std::vector<std::string> words;
    const char divider = command_line.find(AM) != std::string_view::npos ? AM : ' ';
    bool in_word = divider == AM;
    char quote = '\0';
    std::string word;
    for (const char byte : command_line) {
        if (quote ? byte == quote : divider == ' ' && (byte == '"' || byte == '\'')) {
            quote = quote ? '\0' : byte;
            in_word = true;
        } else if (byte == divider && !quote) {
            if (in_word) words.push_back(std::exchange(word, {}));
            in_word = divider == AM;
        } else {
            word += byte;
            in_word = true;
        }
    }
    if (in_word) words.push_back(word);
    return words;
}

std::optional<std::string> find_program(const std::string &name) {
    if (name.empty()) return std::nullopt;
    if (name.find('/') != std::string::npos) return is_executable(name) ? std::optional(name) : std::nullopt;
    if (auto cataloged = find_in_directories(std::getenv("VBCDEV_BIN"), name)) return cataloged;
    return find_in_directories(std::getenv("PATH"), name);
}

CommandOutcome run_program(DP *dp, const std::string &path, const std::vector<std::string> &words) {
    CommandOutcome outcome;
    const TerminalRelease terminal;
    RunningProgram program;
    if (const int error = start_program(dp, path, words, program)) {
        const std::string message = std::string("COMMAND_START") + VM + path + VM + std::strerror(error);
        return refuse_command(dp, words.front(), message, CannotStartCode);
    }
    follow_program(dp, program);
    outcome.exit_code = exit_code_of(program.process);
    // The break key went to the program as well. Unless it died of it, it has dealt with it.
    if (outcome.exit_code != 128 + SIGINT) discard_interrupts(dp);
    if (program.messages.open()) outcome.messages = split_messages(read_from_start(program.messages.number()));
    return outcome;
}

void return_messages(const std::vector<std::string> &messages) {
    const char *variable = std::getenv(MessagesVariable);
    if (!variable) return;
    const int file = std::atoi(variable);
    if (!is_messages_file(file)) return;
    for (const std::string &message : messages)
        if (write_fully(file, message + AM) != 0) return;
}

}  // namespace velda
