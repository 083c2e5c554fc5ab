// interrupt.h - how a wait inside the runtime notices the break key and the end of the session. Private to the runtime.
#pragma once

#include "runtime/vdefc.h"

namespace velda {

// True when an interrupt (SIGINT, a kill from another port) is pending for this context and the break key is enabled.
// A blocking system call that fails with EINTR, and each turn of a wait loop, asks this.
bool interrupt_pending(DP *dp);

// Consumes a pending interrupt: runs the trap set by VLibSignalTrap, or, without one, ends the command by throwing
// CommandStop (mode 2, message printed). Returns when nothing was pending or the trap returned. Call it only where the
// caller holds nothing that the throw would leak.
void poll_interrupt(DP *dp);

}  // namespace velda
