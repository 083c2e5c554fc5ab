#include "runtime/terminal/device.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <mutex>

#include "runtime/base/write_fully.h"
#include "runtime/port/session_port.h"
#include "runtime/process/context.h"
#include "runtime/process/interrupt.h"
#include "runtime/process/output.h"

namespace velda {
namespace {

constexpr int Input = STDIN_FILENO;
constexpr int Output = STDOUT_FILENO;

// A wait looks this often for an event that raised no signal in this thread.
constexpr int LongestSleepMilliseconds = 200;

// The process has one terminal, whatever number of contexts it has. The signal handler reads these; they change with
// the lock held, and `in_session_mode` last.
std::mutex mode_turn;
termios user_settings;
termios session_settings;
std::atomic<bool> in_session_mode{false};
std::atomic<pid_t> owner{0};  // a forked child must not restore its parent's terminal
std::atomic<bool> break_keys_enabled{true};

// What ends the keypad's mode; of no length while the keypad is as the user has it.
char keypad_off[32];
std::atomic<std::size_t> keypad_off_size{0};

bool in_foreground() { return tcgetpgrp(Input) == getpgrp(); }

bool holds_terminal() { return in_session_mode && owner == getpid(); }

// Only calls that are allowed in a signal handler.
void apply(const termios &settings) {
    while (tcsetattr(Input, TCSANOW, &settings) != 0 && errno == EINTR) {
    }
}

void restore_user_settings() {
    const std::size_t size = keypad_off_size.exchange(0);
    if (size > 0) [[maybe_unused]]
        const ssize_t written = write(Output, keypad_off, size);
    apply(user_settings);
}

// The process is about to die or to stop by this signal: the terminal goes back to the user first.
void give_terminal_back(int signal_number) {
    const int saved_error = errno;
    restore_terminal_in_handler();
    signal(signal_number, SIG_DFL);
    sigset_t now_deliverable;
    sigemptyset(&now_deliverable);
    sigaddset(&now_deliverable, signal_number);
    raise(signal_number);
    pthread_sigmask(SIG_UNBLOCK, &now_deliverable, nullptr);
    // Only a stop comes back here, after the process was continued.
    signal(signal_number, give_terminal_back);
    errno = saved_error;
}

void take_terminal_again(int) {
    const int saved_error = errno;
    if (holds_terminal() && in_foreground()) apply(session_settings);
    errno = saved_error;
}

void handle_when_default(int signal_number, void (*handler)(int)) {
    struct sigaction present;
    if (sigaction(signal_number, nullptr, &present) != 0 || present.sa_handler != SIG_DFL) return;
    struct sigaction ours = {};
    ours.sa_handler = handler;
    sigemptyset(&ours.sa_mask);
    sigaction(signal_number, &ours, nullptr);
}

void install_handlers() {
    install_signal_handlers();  // what they handle ends the command in order, and that gives the terminal back
    for (const int deadly : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP})
        handle_when_default(deadly, give_terminal_back);
    handle_when_default(SIGCONT, take_terminal_again);
    static const int registered = std::atexit(leave_session_mode);
    static_cast<void>(registered);
}

termios session_settings_from(const termios &user) {
    termios session = user;
    session.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHONL | IEXTEN);
    session.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR | ISTRIP);
    session.c_cc[VMIN] = 1;
    session.c_cc[VTIME] = 0;
    if (!break_keys_enabled) session.c_cc[VINTR] = session.c_cc[VQUIT] = _POSIX_VDISABLE;
    return session;
}

using Clock = std::chrono::steady_clock;

class Deadline {
  public:
    explicit Deadline(std::optional<int> milliseconds) {
        if (milliseconds) end_ = Clock::now() + std::chrono::milliseconds(*milliseconds);
    }
    // Milliseconds of the next sleep; 0 when the time is over.
    int next_sleep() const {
        if (!end_) return LongestSleepMilliseconds;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now()).count();
        return static_cast<int>(std::clamp<long>(left, 0, LongestSleepMilliseconds));
    }

  private:
    std::optional<Clock::time_point> end_;
};

// One byte of what poll has announced; empty when there was none after all.
std::optional<KeyRead> take_byte() {
    unsigned char byte;
    const ssize_t count = read(Input, &byte, 1);
    if (count == 1) return KeyRead{KeyOutcome::Key, byte};
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return std::nullopt;
    return KeyRead{KeyOutcome::End};
}

void handle_interrupt(DP *dp, const KeyWait &wait) {
    if (!interrupt_pending(dp)) return;
    if (!wait.line.empty()) write_to_terminal("\n");
    poll_interrupt(dp);
}

void show_messages(DP *dp, const KeyWait &wait) {
    if (!messages_wait(dp)) return;
    std::string shown = wait.line.empty() ? "" : "\n";
    for (const std::string &message : take_messages(dp)) shown += message + "\n";
    write_to_terminal(shown + wait.line);
}

}  // namespace

KeyRead read_key(DP *dp, const KeyWait &wait) {
    enter_session_mode();  // before the prompt shows: what is typed at once after it is not echoed twice
    flush_output(dp);
    const std::uint32_t events_before = dp->event_counter;
    const Deadline deadline(wait.milliseconds);
    while (true) {
        handle_interrupt(dp, wait);
        show_messages(dp, wait);
        if (wait.ends_on_event && dp->event_counter != events_before) return {KeyOutcome::Event};
        const int sleep = deadline.next_sleep();
        pollfd input{Input, POLLIN, 0};
        const int ready = poll(&input, 1, sleep);
        if (ready > 0) {
            const auto key = take_byte();
            if (key && key->outcome == KeyOutcome::End) handle_interrupt(dp, wait);  // a terminal that was lost
            if (key) return *key;
        } else if (ready == 0 && sleep == 0) {
            return {KeyOutcome::Timeout};
        }
    }
}

bool input_is_terminal() { return isatty(Input) == 1; }

int typed_ahead() {
    enter_session_mode();  // until then the kernel counts whole lines only
    int count = 0;
    if (!input_is_terminal() || ioctl(Input, FIONREAD, &count) != 0) return 0;
    return count;
}

EditingKeys editing_keys() {
    const std::lock_guard turn(mode_turn);
    const auto key = [](int index, unsigned char usual) {
        const unsigned char set = in_session_mode ? user_settings.c_cc[index] : usual;
        return set == _POSIX_VDISABLE ? usual : set;
    };
    return {key(VERASE, 0x7F), key(VKILL, 0x15), key(VWERASE, 0x17), key(VEOF, 0x04), key(VLNEXT, 0x16)};
}

void enter_session_mode() {
    if (holds_terminal()) return;
    const std::lock_guard turn(mode_turn);
    if (tcgetattr(Input, &user_settings) != 0) return;
    session_settings = session_settings_from(user_settings);
    install_handlers();
    owner = getpid();
    in_session_mode = true;
    apply(session_settings);
}

void leave_session_mode() {
    const std::lock_guard turn(mode_turn);
    if (!holds_terminal()) return;
    if (in_foreground()) restore_user_settings();
    in_session_mode = false;
}

void use_keypad(std::string_view on, std::string_view off) {
    enter_session_mode();
    const std::lock_guard turn(mode_turn);
    if (!holds_terminal() || keypad_off_size > 0 || on.empty() || off.empty() || off.size() > sizeof keypad_off) return;
    std::copy(off.begin(), off.end(), keypad_off);
    keypad_off_size = off.size();
    write_fully(Output, on);
}

void restore_terminal_in_handler() {
    if (holds_terminal()) restore_user_settings();
}

TerminalRelease::TerminalRelease() : was_in_session_mode_(holds_terminal()) { leave_session_mode(); }

TerminalRelease::~TerminalRelease() {
    if (was_in_session_mode_) enter_session_mode();
}

void set_break_keys(bool enabled) {
    const std::lock_guard turn(mode_turn);
    break_keys_enabled = enabled;
    if (!holds_terminal()) return;
    session_settings = session_settings_from(user_settings);
    apply(session_settings);
}

int write_to_terminal(std::string_view bytes) {
    const bool other_than_output = isatty(Output) != 1 && isatty(Input) == 1;
    return write_fully(other_than_output ? Input : Output, bytes);
}

}  // namespace velda
