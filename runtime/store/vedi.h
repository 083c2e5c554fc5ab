// vedi.h - the file-driver layer beneath the statements, for C and C++.
//
// Here a file is a control block, not a cell. A caller may allocate one itself (312 bytes, any contents), open it with
// VediOpen and must close it with VediClose; the cell of an open file addresses one that the statement level made.
//
// Calls return 0 or an error number, which is also left in errno and as SYSTEM(0): the system's own numbers (2 absent,
// 13 no permission, 17 exists, 22 invalid, 28 disk full), VEDI_NO_RECORD, or VEDI_NEEDS_CHECK. The text of the last
// failure is had from VediErrorText. No call here takes record locks, except that an update within a transaction
// locks its record. Changes are journalled as those of statements are.
#ifndef VELDA_RUNTIME_STORE_VEDI_H
#define VELDA_RUNTIME_STORE_VEDI_H

#include <sys/stat.h>

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// Flags of VediControlBlock::flags.
enum {
    VEDI_FILE_NOT_JOURNALLED = 0x01,  // changes to this file are not journalled
    VEDI_FILE_INDEXED = 0x80,         // the file has secondary indexes
    VEDI_FILE_EXCLUSIVE = 0x800,      // the opener is the file's only user and asks for no group locks
    VEDI_FILE_SHARED_INDEX = 0x20000  // the file's own choice of index layout
};

// A file's control block. Only the two flag words are the caller's to read and set; the rest belongs to the runtime.
typedef struct VediControlBlock {
    void *handle[2];     // how cells share the block
    uint32_t flags;      // VEDI_FILE_ flags; set from the file's settings when it is opened
    uint32_t flags2;     // second flag word; bit 0x40 is what VELDATestQFlag tests
    uint64_t state;      // tells an open block from a closed or an unused one
    char reserved[280];  // the open file
} VediControlBlock;

// Error numbers beside the system's.
enum {
    VEDI_NO_RECORD = 2001,  // a read finds no such record; a selection is at its end
    VEDI_NEEDS_CHECK = 117  // the file is damaged, or was not closed before a power loss: CHECK-FILE tells
};

// Room that a caller gives for an error text.
#define VEDI_ERROR_TEXT_BYTES 512

// The message of this context's last failed call here: the thing, the reason and the way out. "" when none has failed.
VELDA_EXPORT const char *VediErrorText(DP *dp);

// --- files ---

// Opens a file by its name, as the statements take it ("DICT NAME", "NAME,SECTION", "NAME]D", a path). The block's
// contents before do not matter. The two zeros have no meaning here.
VELDA_EXPORT int VediOpen(DP *dp, VediControlBlock *file, const char *name, int zero1, int zero2);
// Closes; 22 when the block is not open.
VELDA_EXPORT int VediClose(DP *dp, VediControlBlock *file, int zero);

// Driver commands. 21: `argument` holds `argument_size` bytes of option words divided by AM, which change the file's
// settings: "-L" (not journalled), "-B" and "-T", taken back by "+L" and so on; LOG=, DURABILITY= and PERMS= as
// CREATE-FILE takes them. `reply`, when not null, receives the options now in force, divided by AM and zero-ended, cut
// to `reply_size` bytes. 22 for any other command or word.
VELDA_EXPORT int VediIOCTL(DP *dp, VediControlBlock *file, int command, const void *argument, uint32_t argument_size,
                           void *reply, uint32_t reply_size);

// --- records ---

// Flags of reads and writes. Bits that are not named here are taken and ignored, as journals of other systems set them.
enum {
    VEDI_BINARY = 0x100  // the record unchanged; otherwise in the file's default transfer mode
};

// Reads a record into `*buffer` of `*buffer_size` bytes, which is replaced by a larger one from VELDAmalloc when the
// record and a zero byte behind it do not fit (a null buffer of size 0 is allowed). `*record_size` is the record's
// length. VEDI_NO_RECORD when there is none; then the buffer stays as it was.
VELDA_EXPORT int VediReadRecord(DP *dp, VediControlBlock *file, uint32_t flags, const char *key, uint32_t key_length,
                                char **buffer, uint32_t *buffer_size, uint32_t *record_size);
// Writes a record. `value` is the further value that a journal record carries; like the flags it goes into the record
// of this write and has no other meaning here.
VELDA_EXPORT int VediWriteRecord(DP *dp, VediControlBlock *file, uint32_t flags, const char *key, uint32_t key_length,
                                 const char *data, uint32_t size, uint32_t value);
// Removes a record. 2 when there is none.
VELDA_EXPORT int VediDeleteRecord(DP *dp, VediControlBlock *file, uint32_t flags, const char *key, uint32_t key_length);

// One change of a batch: a write, or with null `data` a delete.
typedef struct VELDAUpdate {
    const char *key;
    uint32_t key_length;
    uint32_t size;  // of the data
    const char *data;
} VELDAUpdate;

// Makes all changes in their order, in one commit where the file's driver has commits: all of them or, on an error,
// none. A record to be deleted may be absent. Keys in ascending order of their bytes go fastest.
VELDA_EXPORT int velda_apply_updates(DP *dp, VediControlBlock *file, uint32_t flags, const VELDAUpdate *updates,
                                     uint32_t count);
// 1 when the file's driver makes such a batch as a whole, also if the process is killed in it; transfer modes mean
// nothing to such a file. 0 when it does not, or the block is not open.
VELDA_EXPORT int velda_applies_whole(VediControlBlock *file);

// --- selections ---

// A walk over the keys of a file. It holds no snapshot between calls; a record that is written or deleted meanwhile may
// or may not be seen, every other one is seen once.
typedef struct VediSelection VediSelection;

// Begins a walk; `*selection` must be given to VediSelectEnd. The file may be closed before that.
VELDA_EXPORT int VediSelect(DP *dp, VediControlBlock *file, VediSelection **selection);
// The next key, valid until the next call on the selection. VEDI_NO_RECORD at the end.
VELDA_EXPORT int VediReadnext(DP *dp, VediControlBlock *file, VediSelection *selection, const char **key,
                              uint32_t *key_length);
// Ends a walk; null is left alone.
VELDA_EXPORT int VediSelectEnd(DP *dp, VediControlBlock *file, VediSelection *selection);

// --- a sequential scan of keys and records ---

typedef struct VediScan VediScan;

enum {
    VEDI_SCAN_KEYS_ONLY = 2  // no record data is wanted
};

// Begins a scan in the driver's own order. `mode` 0 gives records in the file's default transfer mode, 1 unchanged.
VELDA_EXPORT int VediScanfileInit(DP *dp, VediControlBlock *file, int flags, int mode, VediScan **scan);
// The next key and record, as the driver's own bytes, valid until the next call on the scan; with VEDI_SCAN_KEYS_ONLY
// the record is null and 0. VEDI_NO_RECORD at the end. Any of the last four may be null.
VELDA_EXPORT int VediScanfileRead(DP *dp, VediScan *scan, const char **key, uint32_t *key_length, const char **record,
                                  uint32_t *record_length);
// Ends a scan; null is left alone.
VELDA_EXPORT int VediScanfileEnd(DP *dp, VediScan *scan);

// --- whole files ---

// Removes every record; control records and settings stay.
VELDA_EXPORT int VediClearFile(DP *dp, VediControlBlock *file);

enum { VEDI_FILE_COPY = 0, VEDI_FILE_MOVE = 1, VEDI_FILE_DELETE = 2 };

// Copies, moves or deletes the section that `name` means (VEDI_FILE_). `kind` is 4 for a database file, the only kind
// there is. `target` is the name for a copy or move and "" for a delete. `error_text`, when not null, has room for
// VEDI_ERROR_TEXT_BYTES and receives the message of a failure.
VELDA_EXPORT int VediFileOp(DP *dp, int operation, int kind, const char *name, const char *target, char *error_text);

// Moves what a path names, a database file or a plain one, to another path, or removes it where `to` is "". What stood
// at the target is replaced, but a directory never replaces a plain file or the reverse. With `logged` the change of a
// plain file is journalled; that of a database file is, as its settings say.
VELDA_EXPORT int VELDAMoveOrDeleteFile(DP *dp, const char *from, const char *to, int logged);

// Makes one section of a database file. `arguments` are words as CREATE-FILE takes them (TYPE=UD, TYPE=HL, PERMS=,
// LOG=, DURABILITY=, -L and so on, sizes such as 1,1), ended by an empty or null one. `driver_text` is more such words,
// divided by blanks. `value` and `end` have no meaning here. `error_text` as for VediFileOp. The environment's
// VEDI_PREFILEOP, VEDI_POSTFILEOP and VEDI_CREATEFILE are not used.
VELDA_EXPORT int VediCreateFileRaw(DP *dp, const char *name, const char *driver_text, char *error_text, int value,
                                   const char *const *arguments, int end);

// Called with an open file, which the caller of it closes; a result other than 0 ends the walk.
typedef int (*VediFileCallback)(DP *dp, void *context, VediControlBlock *file, const char *name);

enum {
    VEDI_FILES_OF_ACCOUNT = 0,  // the data sections of the current directory's database files, in order of their names
    VEDI_FILES_OPEN = 1         // the files that this process has open
};

// Calls back for each file; the result is the callback's last one, or an error number. A file that cannot be opened is
// passed over.
VELDA_EXPORT int VediGetAllFiles(DP *dp, VediFileCallback callback, void *context, int which, int zero);

// --- control records ---

// Reads a system block: `*block` is new memory from VELDAmalloc, the caller's to free. 2 when there is none.
VELDA_EXPORT int VediControlRead(DP *dp, VediControlBlock *file, uint32_t number, char **block, uint32_t *size);
VELDA_EXPORT int VediControlWrite(DP *dp, VediControlBlock *file, uint32_t number, const char *block, uint32_t size);
// 2 when there is none.
VELDA_EXPORT int VediControlDelete(DP *dp, VediControlBlock *file, uint32_t number);

// --- helpers ---

enum {
    VEDI_HASH_TEXT = 2,       // every byte counts
    VEDI_HASH_CASE_BLIND = 4  // the letters A to Z and a to z hash alike
};

// Hash of a text, by kind. Equal texts of one kind have equal hashes in every process and release.
VELDA_EXPORT uint32_t VediBaseHashUINT(const char *text, uint32_t length, int kind);
// Compares two texts of `length` bytes, A to Z as a to z: below, at or above 0.
VELDA_EXPORT int VediBaseUmemcmp(const char *left, const char *right, uint32_t length);
// Reads a plain file into new memory from VELDAmalloc, with a zero byte behind it; null and errno on failure.
VELDA_EXPORT char *VediBaseReadMalloc(DP *dp, const char *path, uint64_t *size);
// Size of the disk that holds `path` and what is free of it, in bytes.
VELDA_EXPORT int VediBaseCheckFileSizePath(DP *dp, const char *path, uint64_t *total_bytes, uint64_t *free_bytes);

// --- plain files ---

// As POSIX has them: -1 and errno on failure.
VELDA_EXPORT int VediWin32stat(const char *path, struct stat *status);
// The same of a symbolic link itself, not of what it leads to.
VELDA_EXPORT int VediWin32lstat(const char *path, struct stat *status);
VELDA_EXPORT int VediWin32fstat(int descriptor, struct stat *status);
// The descriptor is not passed on to programs that are run.
VELDA_EXPORT int VediWin32open(const char *path, int flags, int mode);
VELDA_EXPORT int VediWin32close(int descriptor);
VELDA_EXPORT int64_t VediWin32lseek(int descriptor, int64_t offset, int whence);
VELDA_EXPORT int VediWin32truncate(const char *path, int64_t size);
VELDA_EXPORT int VediWin32ftruncate(int descriptor, int64_t size);
VELDA_EXPORT int VediWin32mkdir(const char *path, int mode);
VELDA_EXPORT int VediWin32chmod(const char *path, int mode);
// Sets the process mask and gives the one before. It is the whole process's, so of all its threads.
VELDA_EXPORT int VediWin32umask(int mask);

#ifdef __cplusplus
}
static_assert(sizeof(VediControlBlock) == 312);
#endif

#endif
