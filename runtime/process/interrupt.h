// interrupt.h - how a wait inside the runtime notices the break key and the end of the session. Private to the runtime.
//
// SIGINT is the break key. SIGTERM and SIGHUP end the session: each command level ends with its exit handlers, the
// result is 128 and the signal's number; a second one kills the process at once. The handlers are installed by the
// first command (velda_run) or trap of the process, and only where the host program has not set its own.
#pragma once

#include <atomic>
#include <cstdint>

#include "runtime/vdefc.h"

namespace velda {

// True when an interrupt (SIGINT, a kill from another port) is pending for this context and the break key is enabled,
// or when the session must end. A blocking system call that fails with EINTR, and each turn of a wait loop, asks this.
bool interrupt_pending(DP *dp);

// Consumes a pending interrupt: runs the trap set by VLibSignalTrap, or, without one, ends the command by throwing
// CommandStop (mode 2, message printed). Returns when nothing was pending or the trap returned. Call it only where the
// caller holds nothing that the throw would leak.
void poll_interrupt(DP *dp);

// The word that moves with every press of the break key and is woken by every signal that a wait must notice, for waits
// that sleep on words (runtime/base/futex.h). raise_interrupt moves and wakes dp->event_counter.
std::atomic<std::uint32_t> &break_key_word();

// Interrupts this context as the break key does, from any thread: a kill from another port.
void raise_interrupt(DP *dp);

// Break key off and on. While it is off the key has no effect, then or later; the end of the session is not held back.
void enable_break_key(DP *dp, bool enabled);
bool break_key_enabled(DP *dp);

// Forgets break keys pressed so far, such as those that were meant for a program that had the terminal.
void discard_interrupts(DP *dp);

void install_signal_handlers();

// The signal that asked the session to end, 0 when none did.
int session_end_signal();

// How often another process, not the terminal, has sent this one a break key: the terminal sends its own to every
// program that runs on it, the others must be passed on to a program that runs as a command.
unsigned sent_break_count();

}  // namespace velda
