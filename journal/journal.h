// journal.h - configuration, status and administration of the transaction journal, for native programs.
//
// The journal is described by one record that all processes share (runtime/journal/config_record.h). These operations
// report it and change it; each change is on disk when the operation returns and leaves a line in the administration
// log. docs/journal.md shows the same as commands.
//
// Unless an operation says otherwise it takes the context first and gives 0 or a platform error number: 2 absent, 17
// exists, 22 invalid. The reason of a failure is printed to standard error. Sets and files are numbered from 1 to 16;
// times are UTC seconds since 1970; paths are absolute.
#ifndef VELDA_JOURNAL_JOURNAL_H
#define VELDA_JOURNAL_JOURNAL_H

#include "runtime/journal/config_record.h"
#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// --- the configuration and its reports -----------------------------------------------------------------------------

// Maps the configuration; where there is none, makes it, with its lock file and an empty administration log. 0. Ends
// the command with exit code 1 when the journal cannot be had, after "Transaction Lock File Init" or "Logger Init" and
// the reason. With the environment variable MULTIAPP set the second failure is passed over, and 0 is the result.
VELDA_EXPORT int VELDALoggerGetDefinition(DP *dp);

// The report of a set, a negative number meaning the current one, and of the whole journal. Attributes:
//    1 set                     13, 14 port and user that created it    36, 37 first and last time of the set
//    2 named files             15, 16, 17 last save: time, port, user  38, 39 when and where it was archived
//    3 paths                   18, 19, 20 last switch, likewise        40 minutes between checkpoints
//    4 percent used            22 current set                          41 last checkpoint, -1 none
//    5 when named              23 seconds between syncs                42 records enciphered
//    6 size limits, -1 none    24 activation                           43 sync at transaction ends
//    7 bytes of the set        25 extended records                     44, 45, 46 statistics words three to five
//    8 records of the set      30 administration log                   47 the fifth by the sum of the other two
//    9 changes so far          31 its notify program                   48 to 55 the queue names
//   10 configuration file      32 reserved for the runtime
//   11 status, 0 to 2          33, 34, 35 warning thresholds: first percent, further percent, seconds
//   12 when it was created
// Attributes 3 to 6 have a value for each named file; 37 is the present time when the set has none. Gives `result`.
// A journal that cannot be mapped, or a set above 16, gives attribute 1 "-1" and the reason in attribute 2.
VELDA_EXPORT VAR *VELDALoggerGetStatus(VAR *result, DP *dp, int32_t set);

// The short report of the current set: 1 and 9 set, 3 percent used by file, 4 bytes, 5 records, 6 status, 7 last save,
// 8 last switch, 10 activation, 11 last checkpoint, 12 and 13 first and last time, 14 to 17 as attributes 44 to 47
// above.
VELDA_EXPORT VAR *VELDALoggerStatistics(VAR *result, DP *dp);

// Reads the first block of a log file, which need not be configured. Attributes: 1 and 2 first and last time, 3 named
// files, 4 records, 5 bytes, 6 paths, 7 write offset (low 32 bits), 8 where it was archived. 1, with an empty result,
// when there is no such file or it does not begin a set; 1 with a warning when it cannot be opened; 22 or the error
// when it is too short or cannot be read.
VELDA_EXPORT int VELDAGetSetStats(DP *dp, const VAR *file_name, VAR *result);

// 1 when the set holds records, else 0; 2 for a number that is no set.
VELDA_EXPORT int VELDALoggerCheckSetFile(DP *dp, int32_t set);

// --- running duplicators -------------------------------------------------------------------------------------------

// One value for each live duplicator: 1 process, 2 start, 3 port, 4 what it does; 10 to 15 and 20 to 25 specification,
// device type, records, blocks, bytes and errors of its input and of its output. Slots of the dead are cleared first.
VELDA_EXPORT int VELDALoggerStatusRead(DP *dp, VAR *result);

// The caller's slot, in the shared record; taken if it has none yet. Null and errno 2 when all eight are taken by the
// living, null when the configuration cannot be opened.
VELDA_EXPORT DupStatusSlot *VELDALoggerStatusAllocate(DP *dp);

// Frees the caller's slots. 0.
VELDA_EXPORT int VELDALoggerStatusDelete(DP *dp);

// How many slots belong to duplicators that write to the database.
VELDA_EXPORT int VELDALoggerStatusCountDatabase(DP *dp);

// How far they have got: one value for each slot in use, in the same order but without a clearing: 1 process, 2 stamp of
// the last record read, 3 records read a second since the start; where the journal's own sets are read, 4 records and 5
// seconds (between stamps) that it is behind them; 6 the last milestone, come to a sender or sent by a receiver; 7 bytes
// that it is behind, as 4; 8 its last error. What is not known is "". 0.
VELDA_EXPORT int velda_duplicator_lag(DP *dp, VAR *result);

// --- administration ------------------------------------------------------------------------------------------------

// Switches journalling off (0), on (1), or suspends it (2): writers then wait. Needs a current set, and for 1 one whose
// files can all be opened.
VELDA_EXPORT int VELDALoggerChangeStatus(DP *dp, int32_t status);

// Writes go to this set from now on, which is emptied: -1 the eldest, -2 the next that can be used, 0 none, which
// switches journalling off. -2 when the journal cannot be mapped.
VELDA_EXPORT int VELDALoggerSwapLog(DP *dp, int32_t set);

// Empties a set; not the current one while the journal is active or suspended.
VELDA_EXPORT int VELDALoggerTruncateLog(DP *dp, int32_t set);

// Names a file of a set that is not the current one, and empties that set. An empty path removes the file. A file that
// does not exist is an error (mode 0), made after a question (below 0), or made (above 0).
VELDA_EXPORT int VELDALoggerSetFile(DP *dp, int32_t set, int32_t file, int32_t create_mode, const VAR *path);

// Marks a set as archived to a location, in the configuration and in the first block of the file named, which is file
// number `file` of the set or a copy of it.
VELDA_EXPORT int VELDALoggerSetArchive(DP *dp, int32_t set, int32_t file, const VAR *path, const VAR *location);

// Adopts `count` existing log files, the attributes of `list`, as the files of a set.
VELDA_EXPORT int VELDALoggerImportFile(DP *dp, int32_t set, int32_t count, const VAR *list);

// Seconds between syncs and minutes between checkpoints; a number below 1 changes nothing.
VELDA_EXPORT int VELDALoggerSetSync(DP *dp, int32_t seconds);
VELDA_EXPORT int VELDALoggerSetCheckp(DP *dp, int32_t minutes);

// When to warn of full log files: at a first percentage, then at each further step of percent or of seconds. A number
// below 1 leaves its setting.
VELDA_EXPORT int VELDALoggerSetThreshold(DP *dp, int32_t initial_percent, int32_t step_percent, int32_t step_seconds);

// The program that is started for each entry of the administration log; "" removes it. At most 191 characters count.
VELDA_EXPORT int VELDALoggerSetAdminLogNotifyProgram(DP *dp, const VAR *program);

// Flags, 0 or 1: extended records, enciphered records, syncs at transaction ends.
VELDA_EXPORT int VELDALoggerSetExtendedRecord(DP *dp, int32_t flag);
VELDA_EXPORT int VELDALoggerSetEncryptedRecords(DP *dp, int32_t flag);
VELDA_EXPORT int VELDALoggerSetSyncTrans(DP *dp, int32_t flag);

// Names of queues and their managers, 39 characters at most; "" removes a name. Without a journal nothing is done.
VELDA_EXPORT int VELDALoggerSetMQMgr(DP *dp, const VAR *name);
VELDA_EXPORT int VELDALoggerSetMQDataQ(DP *dp, const VAR *name);
VELDA_EXPORT int VELDALoggerSetMQCtrlQ(DP *dp, const VAR *name);
VELDA_EXPORT int VELDALoggerSetMQCtrlReplyQ(DP *dp, const VAR *name);
VELDA_EXPORT int VELDALoggerSetMQDataListenQ(DP *dp, const VAR *name);
VELDA_EXPORT int VELDALoggerSetMQSvrMgr(DP *dp, const VAR *name);
VELDA_EXPORT int VELDALoggerSetMQSvrControlQ(DP *dp, const VAR *name);
VELDA_EXPORT int VELDALoggerSetMQSvrReplyQ(DP *dp, const VAR *name);

// Sets the journal's password, or removes it when the cell is empty; the cell is enciphered in place. -1 when the
// journal cannot be mapped, 22 for a password that is too long to be kept (23 bytes).
VELDA_EXPORT int VELDALoggerSetPassword(DP *dp, VAR *password);

// Asks for the journal's password: 0 when the answer is right, -1 when the journal cannot be mapped, else another
// number.
VELDA_EXPORT int VELDALoggerTestPassword(DP *dp);

// Warns in the administration log that the files are so full.
VELDA_EXPORT int VELDALoggerFileTooFull(DP *dp, int32_t percent);

// Asks a duplicator to stop.
VELDA_EXPORT int VELDALoggerDupKill(DP *dp, int32_t pid);

// Told of what the journal's operations do, so that a program can show it or stop: 7 and 8 around a question to the
// operator; log_reading.h has the codes of reading. It may end the process.
typedef void (*VELDALoggerCallback)(DP *dp, int code, ...);

// The room that a reply needs.
enum { VELDA_LOGGER_REPLY_BYTES = 1024 };

// Asks a question, made as by printf, and reads the reply, zero-ended and without its line end, into `reply`. 22 in a
// job that has nobody to ask. At the end of the input the reply is "", and the result the error, if there was one. The
// second is for callers without a callback.
VELDA_EXPORT int VELDALoggerPromptReply(DP *dp, char *reply, VELDALoggerCallback callback, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
VELDA_EXPORT int VELDALoggerPrompt(DP *dp, char *reply, const char *format, ...) __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif
