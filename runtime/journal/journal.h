// journal.h - the control entries of the transaction journal: the shared configuration, the locks around it, and the
// administration log. For C and C++.
//
// The journal is described by one record (config_record.h) in the file "vediLoggerConfig" of the directory "config" in
// the directory that the environment variable VBCLOGCONFDIR names, or else in the global directory. Every process that
// uses the journal maps that file, shared and writable, and works on the record in place. docs/journal.md tells how a
// journal is set up and what each code of VediLoggerMisc does.
#ifndef VELDA_RUNTIME_JOURNAL_H
#define VELDA_RUNTIME_JOURNAL_H

#include "runtime/journal/config_record.h"
#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// What VediLoggerInit gives when the configuration cannot be mapped.
#define VELDA_LOGGER_NOT_MAPPED ((VELDALoggerConfig *)~(uintptr_t)0)

// The error number for data that is damaged, stale, or of another machine.
#define VELDA_LOGGER_DAMAGED 2014

// Codes of VediLoggerMisc, and the arguments of the two that take one.
enum {
    VELDA_LOGGER_SAVE = 1,             // writes the configuration to disk
    VELDA_LOGGER_TABLE_LOCK = 2,       // argument VELDA_LOGGER_TAKE or VELDA_LOGGER_LEAVE
    VELDA_LOGGER_CLOSE_SET = 3,        // ends the current set with its EOF record and makes it durable
    VELDA_LOGGER_REFRESH_COUNTS = 6,   // argument 0: brings the statistics up to date
    VELDA_LOGGER_REFRESH_SESSION = 7,  // what this session keeps of files and of the journal is fresh from here on
    VELDA_LOGGER_MAKE_DIRECTORY = 13,  // journals a directory that was made; argument: its path, a const char *
    VELDA_LOGGER_BEGIN_BATCH = 16,     // from here to code 17 a change of set or status waits for this session
    VELDA_LOGGER_END_BATCH = 17,
    VELDA_LOGGER_REFRESH = 23,         // what other processes changed before is seen from here on
    VELDA_LOGGER_PUBLISH = 24,         // what was changed before is seen by others from here on
    VELDA_LOGGER_BEGIN_CHANGE = 25,    // takes the lock of a set change or a slot update
    VELDA_LOGGER_END_CHANGE = 26,      // leaves it
    VELDA_LOGGER_TAKE = 1,
    VELDA_LOGGER_LEAVE = 4
};

// The configuration record of this system. The mapping is one for the whole process, made at the first call, and stays
// in place until the process ends; a forked child has it too. When VBCLOGCONFDIR, the global directory or the file
// itself is another one than before, the new file is mapped beside the old. The second argument is 1.
//
// Gives VELDA_LOGGER_NOT_MAPPED and errno on failure: 2 when there is no such file, VELDA_LOGGER_DAMAGED when it is not
// a configuration of this machine and version (wrong magic, size, byte order or format), else the system's error.
// velda_logger_error tells what is wrong. A file that is still too short is taken for one that another process is just
// making, and looked at again for a tenth of a second.
VELDA_EXPORT VELDALoggerConfig *VediLoggerInit(DP *dp, int one);

// Carries out one of the codes above; codes 2 and 6 take one `int` more, code 13 a `const char *`. 0, or an error number
// that errno has too: that of VediLoggerInit when there is no configuration, 22 for a code or argument that does not
// exist, 1 when a lock is left that this session does not hold or code 17 comes without code 16, and that of a record
// which cannot be appended. docs/journal.md says what each does.
//
// The two locks exclude the sessions of all processes and of one process, die with the process that holds them, and
// count: a session that takes one twice leaves it twice. Who needs both takes the one of code 25 first. A wait for a
// lock cannot be interrupted: nobody holds one across a question or a wait.
VELDA_EXPORT int VediLoggerMisc(DP *dp, int code, ...);

// Adds a text, made as by printf, to the administration log: one entry, whole also when many processes write at once,
//
//     2026-11-21T09:30:00Z port 3 pid 4711 severity 0: Log set changed to 2
//
// A line feed at the end of the text is dropped; what follows one inside it stands on a line of its own that begins
// with blanks. Severities: 0 what an operator did, 2 a failure, 257 a warning about space. When the log cannot be
// written, the entry goes to the system's log.
//
// Then the notify program of the configuration, if any, is started as a shell command with two words added, the
// severity and the entry, and not waited for. Never fails and leaves errno as it was.
VELDA_EXPORT void VediLoggerError(DP *dp, int severity, const char *format, ...) __attribute__((format(printf, 3, 4)));

// While on, updates of this session are not journalled: they come out of this system's own journal.
VELDA_EXPORT void velda_logger_set_replay(DP *dp, int on);

// The place in a program that the session's next updates come from, as extended records tell it. Texts may be empty.
VELDA_EXPORT void velda_logger_set_source(DP *dp, const char *file, const char *line);

// When everything appended by then was on disk, UTC seconds; 0 when there was no sync yet.
VELDA_EXPORT int64_t velda_logger_last_sync(DP *dp);

// The records around the updates of a transaction, which its session makes one behind the other between start and end:
// each carries the flag of a transaction. `text` (may be null) is kept in the records up to its first mark.
// `update_bytes` is how much the updates will need at least, keys and records: when the set has no room for that the
// start fails. One transaction of a process at a time is between start and end, others wait; so does a change of set.
//
// 0, also when the journal is inactive, or an error number; velda_logger_error has the message. After an error of the
// start the session is in no transaction; an end or an abort leaves it whatever it returns. 1 when the session is, or is
// not, in one.
VELDA_EXPORT int velda_logger_transaction_start(DP *dp, const VAR *text, uint64_t update_bytes);
VELDA_EXPORT int velda_logger_transaction_end(DP *dp, const VAR *text);
VELDA_EXPORT int velda_logger_transaction_abort(DP *dp, const VAR *text);

// The abort of a transaction whose process died between its start and its end: a record in the name of that process. An
// error number as above; the journal must not be suspended.
VELDA_EXPORT int velda_logger_transaction_abort_dead(DP *dp, int pid, int port);

// Appends a record of another system's journal with its type, flags, strings and payload, in the name of the process that
// it has; its stamp and place are new. An EOF record is left out. Waits while the journal is suspended; 0 and nothing
// while it is inactive. Else 0, VELDA_LOGGER_DAMAGED for a record whose sizes contradict each other, or an error number.
VELDA_EXPORT int WriteDeviceLogset(DP *dp, const unsigned char *record);

// Append a record about a plain file, or about an index or a trigger of a database file. Nothing and 0 while the journal
// is inactive; else 0 or an error number, and velda_logger_error has the message.
//
// The file's content, owner and mode as they are now.
VELDA_EXPORT int VediLoggerFlatFile(DP *dp, const char *path);
VELDA_EXPORT int velda_logger_move_file(DP *dp, const char *from, const char *to);
VELDA_EXPORT int velda_logger_remove_file(DP *dp, const char *path);

enum {
    VELDA_LOGGER_CREATE_INDEX,
    VELDA_LOGGER_DELETE_INDEX,
    VELDA_LOGGER_REBUILD_INDEX,
    VELDA_LOGGER_CREATE_TRIGGER,
    VELDA_LOGGER_DELETE_TRIGGER
};
// `text` holds a "^" and behind it a format with one "%s" for the file's path, by which reports tell of the change.
VELDA_EXPORT int velda_logger_text(DP *dp, int what, const char *file, const char *text);

// For a change of set or of status; the caller is between codes 25 and 26. Holding the writers of all processes stores
// the suspended status and returns when none of them is under way; the release brings the status back that was before.
// When the caller dies in between, the next writer or administrator finishes the change or takes it back.
VELDA_EXPORT void velda_logger_hold_writers(DP *dp);
VELDA_EXPORT void velda_logger_release_writers(DP *dp);

// Stores an operator's status, VELDA_LOGGER_ACTIVE and so on. Unless it is active no record is appended any more when
// this returns. The caller is between codes 25 and 26.
VELDA_EXPORT void velda_logger_set_status(DP *dp, int status);

// A stamp for the next use of a set: the present time, but later than the stamps of all sets and their records.
VELDA_EXPORT int64_t velda_logger_next_time(DP *dp);

// Whether updates are journalled: 0 inactive, or no journal is configured here, 1 active, 2 suspended.
VELDA_EXPORT int VediLoggerStatus(DP *dp);

// Makes the directory of the configuration file, when it is missing, in an existing VBCLOGCONFDIR or in the global
// directory. 0, or the error number.
VELDA_EXPORT int velda_logger_make_directory(DP *dp);

// Waits until every session knows of a configuration that was just made: some hundredths of a second.
VELDA_EXPORT void velda_logger_await_discovery(DP *dp);

// What was wrong at this session's last failed call of this header, naming the thing and the reason; "" before. Valid
// until the next call.
VELDA_EXPORT const char *velda_logger_error(DP *dp);

#ifdef __cplusplus
}
#endif

#endif
