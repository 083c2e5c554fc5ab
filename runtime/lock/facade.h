// facade.h - the dialect's words for execution locks and the release of all locks. Record locks are words of a file
// (runtime/file/facade.h).
//
// They work on the calling thread's context.
#ifndef VELDA_RUNTIME_LOCK_FACADE_H
#define VELDA_RUNTIME_LOCK_FACADE_H

#include "runtime/lock/lock.h"

extern "C" VELDA_EXPORT DP *velda_getdp(void);

namespace velda {

// LOCK n THEN/ELSE: true when the execution lock is this session's now, without waiting.
inline bool try_lock(int number) { return VLibELOCK_IIII(velda_getdp(), 256, 0, number) != 0; }

// LOCK n: waits. False when the wait was interrupted.
inline bool wait_for_lock(int number) { return VLibELOCK_IIII(velda_getdp(), 0, 0, number) != 0; }

// UNLOCK n: true when it was held.
inline bool unlock(int number) { return VLibELOCK_IIII(velda_getdp(), 0, 1, number) != 0; }

// UNLOCK.
inline void unlock_all_numbers() { VLibELOCK_IIII(velda_getdp(), 0, 2, 0); }

// RELEASE: every record and execution lock of this session.
inline void release_all_locks() { VLibFRELEASEALL_I(velda_getdp()); }

}  // namespace velda

#endif
