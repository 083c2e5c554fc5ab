// log_reading.h - reading the transaction journal, for native programs: selections of records, single records by key,
// and records as dynamic arrays. The layout of blocks and records is told by runtime/journal/log_format.h.
//
//   LogSelect *select = VELDALoggerSelectStart(dp, "set=current terminate=eos", 0, NULL);
//   while ((record = VELDALoggerReadnext(dp, select, NULL)) != NULL) ...
//   VELDALoggerSelectEnd(dp, &select);
//
// A failure gives a null address, or an error number, and leaves the number in errno. A record that an operation gives
// lies in a buffer of the session and is valid until the next call of this header in that session. Files of a set are
// counted from 0 here, as the records name them.
#ifndef VELDA_JOURNAL_LOG_READING_H
#define VELDA_JOURNAL_LOG_READING_H

#include "journal/journal.h"
#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// One selection, or the target of a transfer.
typedef struct LogSelect LogSelect;

// Codes of the callback while the journal is read: 1 and 2 around the sleep before another try, 3 and 4 around a wait
// for input, 5 and 6 around the reading of a block from a device, 7 and 8 around a question to the operator, 10 between
// records, 20 with a format and its arguments for an error.

enum { VELDA_LOGGER_KEY_BYTES = 64 };  // room for any record key and a zero byte

// Starts a selection, or makes the target of a transfer when `is_output` is not 0. The specification is a list of tokens
// "name" or "name=operand" divided by blanks or tabs; docs/replication.md has them all. On failure null, with errno 22
// or that of the failing call, and the message in `error_text`, or on standard error when that is null.
VELDA_EXPORT LogSelect *VELDALoggerSelectStart(DP *dp, const char *specification, int is_output, VAR *error_text);

// The next record; null at the end or on a failure. errno is then 2048 more than 514 at the end of the set, 770 after
// the timeout, 1026 where no later set is, 1282 without a set, 1538 past the end time, 1794 when the set could not be
// read; 2014 for damage and 2013 when reading stopped after it. The selection keeps its position, so that reading may be
// tried again. `callback` may be null.
VELDA_EXPORT const unsigned char *VELDALoggerReadnext(DP *dp, LogSelect *select, VELDALoggerCallback callback);

// Closes and frees the selection and clears the pointer. A null selection is left alone.
VELDA_EXPORT void VELDALoggerSelectEnd(DP *dp, LogSelect **select);

// The record at a position of a set. `time`, unless it is 0, is the record's stamp. On failure null and errno: 2 for a
// set that cannot be read or a record outside the set's times, 2014 when no whole record of that stamp stands there.
// `select` may be null, unless the records come from a device.
VELDA_EXPORT const unsigned char *VELDALoggerReadRecord(DP *dp, LogSelect *select, int32_t file, int32_t set,
                                                        int64_t offset, int64_t time, VELDALoggerCallback callback);

// The key of a record, "file*set*offset*time", zero-ended, in `key` of VELDA_LOGGER_KEY_BYTES; gives its length.
VELDA_EXPORT int VELDALoggerMakeKey(DP *dp, const unsigned char *record, char *key);

// The four numbers of a key. A number ends at the first byte that is no digit, whatever that is.
VELDA_EXPORT void VELDALoggerSplitKey(DP *dp, int32_t *file, int32_t *set, int64_t *offset, int64_t *time,
                                      const char *key, int key_length);

// Gives a new buffer of at least `size` bytes in place of `old`, which may be null.
typedef char *(*VELDALoggerAllocator)(DP *dp, char *old, uint32_t size);

// The record as a dynamic array: 1 set, 2 file, 3 offset, 4 size, 5 type name, 6 stamp, 7 whether in a transaction,
// 8 type, 9 process, 10 port, 11 `extra_text`, 21 to 28 the texts of the record (file, key, application, user, terminal,
// application id, source file and line), from 29 what its type adds. The data of a WRITE is shown only when the
// environment has ALLOWLOGDATA. `*buffer` of `*size` bytes is replaced through `allocate` when it is too small;
// `*size` becomes the length. 0, or the error.
VELDA_EXPORT int VELDALoggerConvertRecord(DP *dp, const unsigned char *record, const char *extra_text, char **buffer,
                                          uint32_t *size, VELDALoggerAllocator allocate);

// Makes the connection of a selection of a socket: an output calls its host, an input listens and waits for one sender.
// VELDALoggerSelectStart does this. 0, or -1 or 1 after a message, with errno set. An input that cannot be bound is tried
// again, after waits that double, only when `error_value` is 10048 (address in use).
VELDA_EXPORT int VELDASetupSocketIO(DP *dp, LogSelect *select, int is_output, int error_value);

// A name of a specification's token and its code.
typedef struct LogToken {
    int code;
    const char *name;
} LogToken;

// The table of tokens in the order in which names are looked up; ends with code 0.
VELDA_EXPORT const LogToken *VELDALoggerTokenList(DP *dp);

#ifdef __cplusplus
}
#endif

#endif
