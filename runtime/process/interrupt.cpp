#include "runtime/process/interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>

#include "runtime/base/futex.h"
#include "runtime/process/command_level.h"
#include "runtime/process/context.h"
#include "runtime/process/output.h"
#include "runtime/process/stop.h"
#include "runtime/terminal/device.h"

namespace velda {
namespace {

// Counts the presses of the break key in this process. Each context compares it with the count that it has dealt with.
std::atomic<std::uint32_t> break_count{0};
std::atomic<std::uint32_t> sent_breaks{0};
std::atomic<int> end_signal{0};

struct InterruptState {
    std::uint32_t seen_breaks = break_count;
    std::uint32_t noticed_breaks = seen_breaks;  // those that have moved the event counter
    std::uint32_t seen_raised = 0;               // of dp->raised_interrupts
    bool break_enabled = true;
};

InterruptState &interrupts_of(DP *dp) { return dp->state<InterruptState>(); }

// The signal may have come to another thread than the one that waits.
void wake_waits() {
    const int error_before = errno;
    wake_sleepers(break_count);
    errno = error_before;
}

void on_break_key(int, siginfo_t *info, void *) {
    break_count.fetch_add(1, std::memory_order_relaxed);
    if (info->si_code == SI_USER || info->si_code == SI_QUEUE) sent_breaks.fetch_add(1, std::memory_order_relaxed);
    wake_waits();
}

void on_end_of_session(int signal_number, siginfo_t *, void *) {
    if (end_signal.exchange(signal_number) == 0) return wake_waits();
    // Asked twice: the logic does not come to a point where it could end in order.
    restore_terminal_in_handler();
    signal(signal_number, SIG_DFL);
    raise(signal_number);
}

bool has_default_action(int signal_number) {
    struct sigaction action {};
    return sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL;
}

void handle_when_default(int signal_number, void (*handler)(int, siginfo_t *, void *)) {
    if (!has_default_action(signal_number)) return;
    struct sigaction action {};
    action.sa_sigaction = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO;  // no SA_RESTART: waits return with EINTR and look
    sigaction(signal_number, &action, nullptr);
}

bool break_pending(DP *dp) {
    InterruptState &state = interrupts_of(dp);
    const std::uint32_t breaks = break_count;
    if (breaks != state.noticed_breaks) {
        state.noticed_breaks = breaks;
        dp->event_counter.fetch_add(1);
    }
    if (!state.break_enabled) state.seen_breaks = breaks;
    return state.seen_breaks != breaks || dp->raised_interrupts != state.seen_raised;
}

}  // namespace

bool interrupt_pending(DP *dp) { return break_pending(dp) || end_signal != 0; }

void poll_interrupt(DP *dp) {
    if (const int signal_number = end_signal) throw CommandExit(128 + signal_number);
    if (!break_pending(dp)) return;
    discard_interrupts(dp);
    if (const SignalTrap trap = signal_trap(dp); trap.handler) {
        trap.handler(dp, trap.argument);
        return;
    }
    print_message(dp, "INTERRUPTED");
    throw CommandStop(AbortMode, true);
}

void raise_interrupt(DP *dp) {
    dp->raised_interrupts.fetch_add(1);
    dp->event_counter.fetch_add(1);
    wake_sleepers(dp->event_counter);
}

std::atomic<std::uint32_t> &break_key_word() { return break_count; }

void enable_break_key(DP *dp, bool enabled) {
    install_signal_handlers();
    break_pending(dp);  // what was pressed while it was off is gone
    interrupts_of(dp).break_enabled = enabled;
}

bool break_key_enabled(DP *dp) { return interrupts_of(dp).break_enabled; }

void discard_interrupts(DP *dp) {
    InterruptState &state = interrupts_of(dp);
    state.seen_breaks = state.noticed_breaks = break_count;
    state.seen_raised = dp->raised_interrupts;
}

void install_signal_handlers() {
    static std::once_flag once;
    std::call_once(once, [] {
        handle_when_default(SIGINT, on_break_key);
        handle_when_default(SIGTERM, on_end_of_session);
        handle_when_default(SIGHUP, on_end_of_session);
        // A reader that goes away is an error of the write, which the command reports.
        if (has_default_action(SIGPIPE)) signal(SIGPIPE, SIG_IGN);
    });
}

int session_end_signal() { return end_signal; }

unsigned sent_break_count() { return sent_breaks; }

}  // namespace velda

VELDASignalTrap VLibSignalTrap(DP *dp, VELDASignalTrap handler, void *argument) {
    velda::install_signal_handlers();
    return velda::set_signal_trap(dp, {handler, argument}).handler;
}

int VLibSignalTest(DP *dp) {
    if (!velda::interrupt_pending(dp)) return 0;
    velda::poll_interrupt(dp);
    return 1;
}

int velda_session_end_signal(DP *) { return velda::session_end_signal(); }

VELDADebugTrap VRunADebugSetTrap(DP *dp, VELDADebugTrap handler) {
    return std::exchange(velda::current_level(dp).debug_trap, handler);
}
