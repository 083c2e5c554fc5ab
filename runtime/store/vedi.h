// vedi.h - the file-driver layer beneath the statements, for C and C++.
//
// Here a file is a control block, not a cell. A caller may allocate one itself (312 bytes, any contents), open it with
// VediOpen and must close it with VediClose; the cell of an open file addresses one that the statement level made.
#ifndef VELDA_RUNTIME_STORE_VEDI_H
#define VELDA_RUNTIME_STORE_VEDI_H

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

#ifdef __cplusplus
}
static_assert(sizeof(VediControlBlock) == 312);
#endif

#endif
