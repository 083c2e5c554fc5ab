// transaction.h - transactions of a session: updates of several records and files that are made together or not at all.
// For C and C++.
//
// Between its begin and its end the session's WRITEs and DELETEs are held in the session. Its own reads, walks and
// copies find them; other sessions see the files as they were. The commit makes them all: when it has returned 1 every
// update is made, and when it returns 0 none is. A process that dies before its commit has returned leaves all of them
// or none, in every file: whoever next uses the system finishes what was begun before it is given one of the dead
// session's record locks. Updates of files of durability `sync` keep this promise after a power loss too.
//
// Locks. Each record that the transaction writes or deletes is locked until its end, and a write waits for the lock when
// another session has it. Record locks that the session takes meanwhile are kept until the end, whatever releases them
// before; all of them end with it, but those taken before the begin and not released or written without keeping since.
// Of two sessions that wait for one another the later one is refused (error 35). Locks are advisory: a session that
// writes without a transaction and without the lock is not held up, and its update is overwritten by the commit.
//
// Not held are the making, clearing and removal of whole files and control records: they happen at once, and clearing a
// file is refused within a transaction (error 16). A file with held updates that was removed fails the commit.
//
// Limits. A transaction holds at most 256 MiB of keys and records (what was written last of each record counts): the
// update that goes beyond is refused with error 27, and the transaction stays as it was.
//
// A transaction belongs to the session (DP) and to the command level that began it. It is aborted when that command ends
// without ending it, by whatever way, or when the session does. A forked child is not in its parent's transaction.
#ifndef VELDA_RUNTIME_TRANSACTION_TRANSACTION_H
#define VELDA_RUNTIME_TRANSACTION_TRANSACTION_H

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// Each returns 1 when it is done. On 0 SYSTEM(0) holds the reason as an error number and velda_transaction_error its
// text. `text` is a remark of the program for the journal, kept up to its first mark; it may be null. An aborted
// transaction has left nothing there.

// TRANSTART. 0 with 114 when a transaction is active already: it stays active.
VELDA_EXPORT int velda_transaction_begin(DP *dp, const VAR *text);

// TRANSEND: makes the updates. On 0 none of them is made; the transaction is over in any case, and its locks are
// released. 0 with 22 when no transaction is active, 2 when a file of it is gone, 28 when a disk is full.
VELDA_EXPORT int velda_transaction_commit(DP *dp, const VAR *text);

// TRANSABORT: drops the updates and releases the locks. 0 with 22 when no transaction is active.
VELDA_EXPORT int velda_transaction_abort(DP *dp, const VAR *text);

// TRANSQUERY: 1 while a transaction of this session is active, else 0.
VELDA_EXPORT int velda_transaction_active(DP *dp);

// The same as velda_transaction_begin for the command level that runs the current command: the command may end before
// the transaction. What the command TRANSTART does.
VELDA_EXPORT int velda_transaction_begin_for_caller(DP *dp, const VAR *text);

// The text of the last failure of one of these calls in this session: the thing and the reason. "" before. Valid until
// the next call.
VELDA_EXPORT const char *velda_transaction_error(DP *dp);

#ifdef __cplusplus
}
#endif

#endif
