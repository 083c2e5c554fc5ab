// lock.h - record locks, execution locks and the lock server's questions, for C and C++.
//
// A lock belongs to the context that took it: its port, its process and its thread. It ends when it is released, when
// the context ends, and when the process or the thread dies, however it dies. Every process of the system sees it.
// Record locks are taken and released by the statements of runtime/file/file.h; code of the runtime itself uses
// runtime/lock/record_lock.h.
#ifndef VELDA_RUNTIME_LOCK_LOCK_H
#define VELDA_RUNTIME_LOCK_LOCK_H

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// LOCK and UNLOCK of an execution lock, a number that programs agree on.
//   (256, 0, n)  takes lock n without waiting: 1 when it is taken or was this context's already, 0 when another has it
//   (0, 0, n)    takes lock n, waiting for it: 1 when it is taken, 0 when the wait was interrupted
//   (0, 1, n)    releases lock n: 1 when this context held it, else 0
//   (0, 2, 0)    releases every execution lock of this context: 1
// Any other modes take nothing and give 0, with error 22 in SYSTEM(0). A failure of the lock table gives 0 and its
// error number.
VELDA_EXPORT int VLibELOCK_IIII(DP *dp, int mode, int operation, int number);

// RELEASE without operands: frees all record and execution locks of this context. Locks that a wait of others is queued
// for go to the first in line. 1.
VELDA_EXPORT int VLibFRELEASEALL_I(DP *dp);

// True when the distributed lock service runs. It never does here: every lock lies in the machine's own table.
VELDA_EXPORT int vDLS_LockServerActive(DP *dp);

// The next line of the lock service's report, as new text from VELDAmalloc in *line. Without a service there is none:
// the result is -1 and *line is null.
VELDA_EXPORT int vDLS_ClientReadNextInfo(DP *dp, char **line);

// Questions about locks, by command number.
//   100  1 when no lock daemon runs, which is always; `target` is left alone and may be null
//   101  `target` becomes the locks of the system, one attribute a lock, its values: port, value, key, type, the two
//        numbers that identify the file (inode, device), process id, address; where ports wait for the lock, a ninth value
//        has them, one sub-value each, in the order in which they will be served. 0, or the error number
// Any other command gives 22.
VELDA_EXPORT int VELDAReturnLockInfo(DP *dp, int command, VAR *target);

#ifdef __cplusplus
}
#endif

#endif
