// rawio.h - raw files: bytes at offsets, lines, record locks on a file that is no database file, and link records, for
// C and C++. The journal, the index files and the lock reports stand on it.
//
// Unless an entry says otherwise the result is 0 for success and else the system error number, which errno holds too;
// an entry that returns an address returns null. Calls go on after a signal. A handle belongs to one thread at a time;
// different handles, also of one file, may be used side by side.
#ifndef VELDA_RUNTIME_RAWIO_RAWIO_H
#define VELDA_RUNTIME_RAWIO_RAWIO_H

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// An open raw file.
typedef struct VRunFile VRunFile;

// What VRunFileIOGetStatus tells.
typedef struct VRunFileStatus {
    int64_t size_bytes;
    int64_t modified_seconds;  // since 1970, UTC
    uint64_t device;
    uint64_t inode;
    uint32_t mode;  // type and permission bits
    uint32_t uid;
    uint32_t gid;
    uint32_t links;
} VRunFileStatus;

// A block of a linked file that is held in memory, or a link record. Its bytes stay where they are until it is released
// or resized.
typedef struct VRunFrame {
    int64_t offset;   // in the file: what names a link record
    uint32_t length;  // bytes
    char *bytes;
} VRunFrame;

// Modes of VRunFileIOOpen for logic that does not know the system's own, whose values they have.
enum {
    VELDA_OPEN_READ = 0,
    VELDA_OPEN_WRITE = 1,  // of VediWin32open only
    VELDA_OPEN_READ_WRITE = 2,
    VELDA_OPEN_CREATE = 0100,
    VELDA_OPEN_NEW = 0300,  // creates, and fails with 17 when there is such a file
    VELDA_OPEN_TRUNCATE = 01000,
    VELDA_OPEN_NO_WAIT = 04000  // of VediWin32open only: a pipe is opened though nobody has its other end
};

// Opens a path; both kinds of slash divide it. `mode` is that of open(2): O_RDONLY or O_RDWR, with O_CREAT, O_TRUNC and
// O_EXCL; `permissions` are those of a file that it makes, 0 meaning 0666, less the process's mask. A directory is
// refused with error 21. Null and errno on failure.
VELDA_EXPORT VRunFile *VRunFileIOOpen(DP *dp, const char *path, int mode, int permissions);

// Releases the frames that are still held and frees the handle. Record locks stay. Null is left alone.
VELDA_EXPORT int VRunFileIOClose(DP *dp, VRunFile *file);

// Reads or writes `count` bytes at an offset. `*done` (may be null) is the number of bytes moved. A read that meets the
// end of the file before `count` bytes gives ENODATA (61) and what there was; a write that the disk has no room for
// gives its error and the part that was written.
VELDA_EXPORT int VRunFileIORead(DP *dp, VRunFile *file, int64_t offset, void *buffer, size_t count, size_t *done);
VELDA_EXPORT int VRunFileIOWrite(DP *dp, VRunFile *file, int64_t offset, const void *buffer, size_t count,
                                 size_t *done);

// Makes what was written durable.
VELDA_EXPORT int VRunFileIOSync(DP *dp, VRunFile *file);

// The next line, from the start of the file on, without its line feed (and a carriage return before it). `*line` is
// valid until the next call; a zero byte follows its `*length` bytes. The last line needs no line feed. ENODATA (61) at
// the end.
VELDA_EXPORT int VRunFileIOGetLine(DP *dp, VRunFile *file, const char **line, size_t *length);

// What the handle stands for. The device and inode identify the file to the lock table; the path is absolute.
VELDA_EXPORT int VRunFileIOGetFd(DP *dp, const VRunFile *file);
VELDA_EXPORT uint64_t VRunFileIOGetDevice(DP *dp, const VRunFile *file);
VELDA_EXPORT uint64_t VRunFileIOGetIno(DP *dp, const VRunFile *file);
VELDA_EXPORT const char *VRunFileIOGetFullPath(DP *dp, const VRunFile *file);
VELDA_EXPORT int VRunFileIOGetStatus(DP *dp, const VRunFile *file, VRunFileStatus *status);

// The number by which lock reports show a key; the same for a key of a raw and of a database file.
VELDA_EXPORT int64_t VRunFileIOLockHash(DP *dp, const char *key, size_t key_length);

// A record lock on a key of the file, in the same table as those of database files; it dies with its process.
//   mode 1  takes it, waiting        mode 2  takes it, EWOULDBLOCK (11) when another session holds it
//   mode 4  releases it; ENOENT (2) when this session does not hold it
// A wait that is interrupted gives EINTR (4). Any other mode gives 22.
VELDA_EXPORT int VRunFileIOLockRecord(DP *dp, VRunFile *file, const char *key, size_t key_length, int mode);

// --- linked files --------------------------------------------------------------------------------------------------
//
// A linked file consists of blocks of one size, which EnableLink tells. FrameRead gives any block as it stands, as the
// journal's readers need it. Link records are of any length and lie in chains of blocks; the first block of the file is
// its head: bytes 156 to 163 are the offset of the first free block, 164 to 167 the number of free blocks, and a free
// block starts with the 8-byte offset of the next one (0 at the end). Each block of a record has a head of 52 bytes:
//   0 next block of the record, 0 at the end (8)    8 length of the record, in its first block (4)    12 "LINK" (4)
//   16 number of the block in the record, from 0 (4)    20 reserved, zero (32)
// Integers stand with their most significant byte first. Who changes a linked file from several processes keeps them
// apart by a lock of his own.

// Sets the block size: 256 bytes to 16 MiB. A second call with another size releases the frames first.
VELDA_EXPORT int VRunFileIOEnableLink(DP *dp, VRunFile *file, uint32_t block_size);

// The block at an offset, a multiple of the block size; the last block of a file may be short. `*frame` must be
// released. Held blocks are shared: reading one again costs no read of the file. ENODATA (61) behind the end of the
// file.
VELDA_EXPORT int VRunFileIOFrameRead(DP *dp, VRunFile *file, int64_t offset, VRunFrame **frame);

// A new link record of `length` zero bytes, at least 1. `*frame` is held and must be released.
VELDA_EXPORT int VRunFileIONewLink(DP *dp, VRunFile *file, uint32_t length, VRunFrame **frame);

// The link record at an offset. EBADMSG (74) when there is none, or a damaged one.
VELDA_EXPORT int VRunFileIOLinkRead(DP *dp, VRunFile *file, int64_t offset, VRunFrame **frame);

// Gives the record another length: what it held is kept or cut, new bytes are zero; its offset stays. The contents,
// with what the caller changed in frame->bytes, are written, also when the length is the one it has. Length 0 gives the
// blocks of the record back to the free list; the frame is then empty, its offset 0. A process that dies in between
// leaves at worst blocks that belong to nothing.
VELDA_EXPORT int VRunFileIOLinkResize(DP *dp, VRunFile *file, VRunFrame *frame, uint32_t length);

// Gives a frame back; changes that were not written are dropped. Null is left alone.
VELDA_EXPORT int VRunFileIOLinkRelease(DP *dp, VRunFile *file, VRunFrame *frame);

// --- lock reports --------------------------------------------------------------------------------------------------

// Of an open database file and a key: the file's inode and device and the key's lock hash, as integers in three cells.
// 0, or 22 when the cell holds no open file: then nothing is stored.
VELDA_EXPORT int VELDAGetSingleLockInfo(DP *dp, const VAR *file, const VAR *key, VAR *inode, VAR *device, VAR *hash);

// Inode and device of the file at a path. 0, or the error number: then nothing is stored.
VELDA_EXPORT int VELDAGetSingleLockInfoFlatFile(DP *dp, const VAR *path, VAR *inode, VAR *device);

#ifdef __cplusplus
}
#endif

#endif
