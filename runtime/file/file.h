// file.h - files and records at statement level: OPEN, READ, WRITE, DELETE, SELECT and their kin, for C and C++.
//
// A file cell (DSCB) is a VAR of form exactly VELDA_FORM_FILE. Copying it shares the open file; the file closes when
// the last cell that holds it is overwritten. Locks are not tied to the cell: those taken on a file outlive its closing
// and end with their release or with the session. Wherever a file is asked for, a null pointer means the default file,
// which OPEN without a target sets.
//
// Results: 1 done, 0 the ELSE path, 2 the record is locked by another port, 3 an error was reported. On anything but 1
// SYSTEM(0) and the setting variable, if one is given, hold the reason: a system error number (2 absent, 22 invalid, 28
// disk full ...), VELDA_ERROR_PERMISSION where permission is lacking, and for result 2 the setting variable is the port
// that holds the lock. A failure that has no result to report it by ends the command with a message that names the
// file, the key and the reason: an error on the disk is never taken for a missing record.
//
// Keys are byte strings of 1 to 65,536 bytes, records up to 1 GiB. Reading with an impossible key finds nothing (0);
// writing or deleting with one is an error.
#ifndef VELDA_RUNTIME_FILE_FILE_H
#define VELDA_RUNTIME_FILE_FILE_H

#include "runtime/vdefc.h"

// Flags of the record statements.
enum {
    VELDA_READ_LOCK = 0x4000000,         // read: take the record lock, wait for it
    VELDA_READ_LOCK_NOWAIT = 0x4200000,  // read: take the record lock, result 2 when another port holds it
    VELDA_READ_REPORT_LOCK = 0x200000,   // read without lock; result 2, record and all, when another port holds it
    VELDA_ONE_ATTRIBUTE = 0x2000000,     // read or write one attribute only, numbered by the attribute argument
    VELDA_WRITE_KEEP_LOCK = 0x4000000,   // write, delete: keep the record lock
    VELDA_WRITE_NOWAIT = 0x200000,       // write, delete: in a transaction, result 2 when another port holds the lock
    VELDA_REPORT_ERRORS = 0x400000       // all: an error is result 3 and a code in the setting variable, not a stop
};

// The code of a failure that permission is lacking for, in SYSTEM(0) and setting variables.
enum { VELDA_ERROR_PERMISSION = 24576 };

// Control commands of VLibFIOCTL_IBBB.
enum { VELDA_IOCTL_MODE = 9, VELDA_IOCTL_STATUS = 10 };

// Attributes of the file status that FSTATUS and control command 10 give. Attributes not named here are empty.
enum {
    VELDA_STATUS_TYPE = 1,         // "UD" a directory file, "HL" a hashed file
    VELDA_STATUS_RECORDS = 2,      // number of records
    VELDA_STATUS_SIZE = 3,         // bytes on disk
    VELDA_STATUS_DURABILITY = 4,   // "sync" or "lazy"
    VELDA_STATUS_LOGGED = 5,       // 1 when changes are journalled, else 0
    VELDA_STATUS_PERMISSIONS = 6,  // mode bits in octal, such as 0666
    VELDA_STATUS_OPTIONS = 7,      // driver options, one value each
    VELDA_STATUS_FLAGS = 8,        // words of the driver for reports, one value each, such as "read-only"
    VELDA_STATUS_READ_MODE = 9,    // "RT", "RB", or "" for the driver's default
    VELDA_STATUS_WRITE_MODE = 10,  // "WT", "WB", or ""
    VELDA_STATUS_INODE = 11,       // with the device: what the lock table knows the file by
    VELDA_STATUS_DEVICE = 12,
    VELDA_STATUS_NAME = 13,  // the name as it was opened
    VELDA_STATUS_PATH = 27   // the file's full path
};

// Attributes of FILEINFO; those not named here are empty.
enum {
    VELDA_FILEINFO_OPEN = 1,  // 1
    VELDA_FILEINFO_NAME = 2,  // the name as it was opened
    VELDA_FILEINFO_TYPE = 3,  // "UD", "HL"
    VELDA_FILEINFO_PATH = 20  // the file's full path
};

// Attributes of DIR.
enum {
    VELDA_DIR_SIZE = 1,  // bytes
    VELDA_DIR_DATE = 2,  // day number of the last change, local time
    VELDA_DIR_TIME = 3,  // seconds since midnight of the last change, local time
    VELDA_DIR_FLAGS = 4  // "D" for a directory, "S" for what is neither directory nor plain file, else ""
};

#ifdef __cplusplus
extern "C" {
#endif

// --- files ---------------------------------------------------------------------------------------------------------

// OPEN dictionary, name TO target. `dictionary` is null, or a cell: "DICT" in any case opens the dictionary, and "", 0
// or "DATA" the file itself. Names: NAME, "DICT NAME", "DATA NAME", "NAME,SECTION", "." for the current directory,
// paths with either kind of slash. 0 when the file cannot be opened; the target is then as before.
VELDA_EXPORT int VLibFNEWOPEN_IIBBBB(DP *dp, int flags, const VAR *dictionary, const VAR *name, VAR *target,
                                     VAR *setting);

// The older form of the same.
VELDA_EXPORT int VLibFOPEN_IBBBB(DP *dp, const VAR *dictionary, const VAR *name, VAR *target, VAR *setting);

// CLOSE: the cell becomes "". Locks stay. 0 when the cell held no file.
VELDA_EXPORT int VLibFCLOSE_IB(DP *dp, VAR *file);

// CLEARFILE: removes all records. Record locks stay. An error (16) within a transaction.
VELDA_EXPORT int VLibFNEWCLEARFILE_IIBB(DP *dp, int flags, const VAR *file, VAR *setting);

// IOCTL. Command 9 sets how the records of a directory file are read and written, by a text of words divided by commas:
// R read or W write, then T text (attributes are lines) or B binary; other files take the words and ignore them.
// Command 10 gives the file's status in `argument`. 1 when done, 0 with 22 in SYSTEM(0) for any other command or word.
VELDA_EXPORT int VLibFIOCTL_IBBB(DP *dp, const VAR *file, const VAR *command, VAR *argument);

// STATUS of an open file, attributes VELDA_STATUS_. 0 and "" when the cell is no file or its status cannot be read.
VELDA_EXPORT int VLibFSTATUS_IBBB(DP *dp, VAR *target, const VAR *file, VAR *setting);

// FILEINFO of an open file, attributes VELDA_FILEINFO_; "" when the cell is no file. Returns the target.
VELDA_EXPORT VAR *VLibFFILEINFO_BBBB(DP *dp, VAR *target, const VAR *file, const VAR *selector);

// DIR of a path: attributes VELDA_DIR_, or "" when there is nothing of that name. Returns the target.
VELDA_EXPORT VAR *VLibEDIR_BBB(DP *dp, VAR *target, const VAR *path);

// A key that no other call gives, on this system, ever: 16 digits and lower-case letters. Returns the target.
VELDA_EXPORT VAR *VLibEUNIQUEKEY_BB(DP *dp, VAR *target);

// The cell of the default file. It holds no file until an OPEN without target. As the source of VLibFSELECT_IBBB it
// gives the active default select list, if there is one, before the file itself.
VELDA_EXPORT VAR *VLibReturnDefaultFile(DP *dp);

// What an open file's cell tells of it. VELDAGetFilenameFromVar stores the file's full path and returns 1; for a cell
// that holds no file it returns 0 and stores nothing. VELDACatalogSetFileNotLogged keeps changes made through this cell
// and its copies out of the journal; 0 for a cell that is no file. CheckIndex: true when the file has secondary
// indexes. VELDATestQFlag: true when the cell was opened through a pointer to another file; always false when `ignore`
// is not 0.
VELDA_EXPORT int VELDAGetFilenameFromVar(DP *dp, const VAR *file, VAR *name);
VELDA_EXPORT int VELDACatalogSetFileNotLogged(DP *dp, const VAR *file);
VELDA_EXPORT int CheckIndex(DP *dp, const VAR *file);
VELDA_EXPORT int VELDATestQFlag(DP *dp, const VAR *file, int ignore);

// --- records -------------------------------------------------------------------------------------------------------

// READ. With VELDA_ONE_ATTRIBUTE the target gets that attribute alone (0: all of the record). On 0 the target is "";
// when a lock was asked for it is held all the same, so that a new record can be written under it. On 2 without reading
// (VELDA_READ_LOCK_NOWAIT) the target is as before. A wait for a lock ends when the session is interrupted: then the
// command ends, or the trap that the program set runs and the wait goes on.
VELDA_EXPORT int VLibFNEWREAD_IIBBBIB(DP *dp, int flags, const VAR *file, VAR *target, const VAR *key, int attribute,
                                      VAR *setting);

// MATREAD: attribute n of the record into cell n of the matrix. Cells beyond the last attribute become ""; when there
// are more attributes than cells, the last cell takes all that are left, with their marks. `count` (may be null) is the
// number of attributes of the record. Flags and results as READ; on 0 every cell is "".
VELDA_EXPORT int VLibFNEWMATREAD_IIBBBBB(DP *dp, int flags, VAR *count, VAR *matrix, const VAR *key, const VAR *file,
                                         VAR *setting);

// WRITE: stores the record and releases its lock, if this session holds it and VELDA_WRITE_KEEP_LOCK is not given. With
// VELDA_ONE_ATTRIBUTE it replaces that attribute (-1 appends one) in the record as it is by then, under the record's
// lock. The lock is advisory: a write without it goes through. On an error a lock stays held. Within a transaction
// (runtime/transaction/transaction.h) a write and a delete take the record's lock, waiting for it unless
// VELDA_WRITE_NOWAIT is given, and every lock is kept to the transaction's end.
VELDA_EXPORT int VLibFNEWWRITE_IIBBBIB(DP *dp, int flags, const VAR *file, const VAR *record, const VAR *key,
                                       int attribute, VAR *setting);

// DELETE: removes the record, if there is one, and releases its lock as WRITE does.
VELDA_EXPORT int VLibFNEWDELETE_IIBBB(DP *dp, int flags, const VAR *file, const VAR *key, VAR *setting);

// RELEASE: frees the lock of one record or, with a null key, all record locks of this session on the file. 0 when the
// cell is no file or no lock of the record was held. RELEASE of everything is VLibFRELEASEALL_I in runtime/lock/lock.h.
VELDA_EXPORT int VLibFRELEASE_IBB(DP *dp, const VAR *file, const VAR *key);

// --- select lists --------------------------------------------------------------------------------------------------
//
// A list cell has the form VELDA_FORM_LIST. Copies of it name the same list: a key read through one is gone for all. A
// list of a file's keys streams from the file, also after the file cell has been overwritten; it costs no memory for
// its keys unless the cell is read as text, which gives the keys not yet read as a dynamic array. The null pointer
// means the default list of the session, which commands hand on to the next command.

// SELECT source TO target. A file cell (or null: the default file) gives all its keys; any other cell is a dynamic
// array with one key an attribute. An empty list is no active default list. A file that cannot be read ends the command
// with a message, or gives 0 where a setting variable takes the reason: a list that broke off must not look like one at
// its end.
VELDA_EXPORT int VLibFSELECT_IBBB(DP *dp, const VAR *source, VAR *target, VAR *setting);

// READNEXT: 1 and the next key; 0 and "" at the end. A plain string in `list` is taken as a dynamic array of keys and
// becomes a list by this. `value` and `subvalue` (may be null) become 0. Failures as for SELECT.
VELDA_EXPORT int VLibFREADNEXT_IBBBBB(DP *dp, VAR *key, VAR *value, VAR *subvalue, VAR *list, VAR *setting);

// READLIST: moves a list into the target, a list cell that also reads as the dynamic array of its keys. With a name it
// is the saved list of that name, which stays saved. With "" it is the active default list or else the list that this
// session saved without a name; either is used up by it. 0 and "" when there is none.
VELDA_EXPORT int VLibFREADLIST_IBBB(DP *dp, VAR *target, const VAR *name, VAR *setting);

// SAVE-LIST and DELETE-LIST. Saved lists are records of the file lists/saved in the global directory, keyed by name,
// and outlive the session; the list without a name belongs to the session. `list` null saves (and uses up) the default
// list. 1 when done; 0 when there is no such list, or with the reason in `message` (may be null).
VELDA_EXPORT int velda_save_list(DP *dp, const VAR *name, VAR *list, VAR *message);
VELDA_EXPORT int velda_delete_list(DP *dp, const VAR *name, VAR *message);

// The cell of the default select list: "" when none is active.
VELDA_EXPORT VAR *VLibReturnDefaultSelect(DP *dp);

// Number of keys that the active default select list still has; 0 when none is active. For a list that streams from a
// file it is the number of its records less those read, so an estimate while others write.
VELDA_EXPORT int VRunCountDefaultSel(DP *dp);

// --- copying in bulk -------------------------------------------------------------------------------------------------
//
// Records go from one file to another, or to other keys of the same, a thousand to a commit. What is seen is what READ,
// WRITE and DELETE without locks would give: a record that waits in the batch exists, and a failure ends the command with
// a message that names the file and the key, with all updates before it made. Another session sees the updates once their
// batch is made, and a process that is killed loses those of its last batch: the target then holds whole records, and
// a source record is deleted only after its copy stands in the target.

typedef struct VELDABulkCopy VELDABulkCopy;

// Begins a copy between two file cells, which may be overwritten meanwhile. To be given to velda_bulk_copy_end. With
// `moving` the records read are meant to be removed: each is read under its lock, waiting for it, and keeps it until it
// is removed or the next one is read, so that an update of a session that locks is never lost by the move.
VELDA_EXPORT VELDABulkCopy *velda_bulk_copy_begin(DP *dp, const VAR *source, const VAR *target, int moving);

// READ from the source: 1, or 0 and "" when there is no such record.
VELDA_EXPORT int velda_bulk_copy_read(VELDABulkCopy *copy, VAR *record, const VAR *key);

// READNEXT of the next key and READ of its record from the source, in one step where the list streams from the source.
enum { VELDA_BULK_COPY_END = 0, VELDA_BULK_COPY_RECORD = 1, VELDA_BULK_COPY_NO_RECORD = 2 };
VELDA_EXPORT int velda_bulk_copy_next(VELDABulkCopy *copy, VAR *list, VAR *key, VAR *record);

// 1 when the target has a record of that key.
VELDA_EXPORT int velda_bulk_copy_target_has(VELDABulkCopy *copy, const VAR *key);

// WRITE into the target, DELETE from the source.
VELDA_EXPORT void velda_bulk_copy_write(VELDABulkCopy *copy, const VAR *key, const VAR *record);
VELDA_EXPORT void velda_bulk_copy_remove(VELDABulkCopy *copy, const VAR *key);

// Makes the updates that wait. An interrupt that is pending ends the command after it.
VELDA_EXPORT void velda_bulk_copy_flush(VELDABulkCopy *copy);

// Ends the copy. Updates that still wait, because the command was broken off, are made; when that fails the message is
// printed. Null is left alone.
VELDA_EXPORT void velda_bulk_copy_end(VELDABulkCopy *copy);

// --- making and removing files --------------------------------------------------------------------------------------

// CREATE-FILE. `operands`, one an attribute, are those of the command:
//   {DICT|DATA} NAME{,SECTION}   both parts of the file, or one of them; a section brings a missing dictionary with it
//   -B -L -T                     driver options; -L also means LOG=NO
//   TYPE=UD|HL                   type of the data section; dictionaries are hashed unless DICT is given with a type
//   PERMS=0666  LOG=NO|YES       mode bits in octal; whether changes are journalled
//   DURABILITY=SYNC|LAZY         what an update survives: power loss, or the death of any process
//   1  11  1,1  23,1             sizes of older systems: accepted, kept among the options, without effect
// 1 when made. 0 leaves nothing half made; `message` then holds a message that names the file and the reason.
VELDA_EXPORT int velda_create_file(DP *dp, const VAR *operands, VAR *message);

// DELETE-FILE of {DICT|DATA} NAME{,SECTION}: without DICT or DATA the data section goes with the dictionary.
VELDA_EXPORT int velda_delete_file(DP *dp, const VAR *operands, VAR *message);

// CHECK-FILE of a file name as OPEN takes it: walks the whole file. 1 with the number of records that could be read and
// one line a fault in `findings`, "" when the file is sound; 0 with a message when there is no such file.
VELDA_EXPORT int velda_check_file(DP *dp, const VAR *name, VAR *records, VAR *findings, VAR *message);

#ifdef __cplusplus
}
#endif

#endif
