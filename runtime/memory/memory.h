// memory.h - memory for native logic, with the place of each allocation for leak reports.
//
// Every call takes the source module's name (a literal: it is kept by address) and the line. With the environment
// variable VELDA_LEAK_REPORT set when the process starts, each block is remembered, and at the end of the process the
// ones that were not freed are listed by module and line, to standard error or to the file that the variable names when
// it holds a "/". Otherwise the calls cost no more than the C library's.
//
// Blocks come from the C library's allocator. A call that finds no memory returns null.
#ifndef VELDA_RUNTIME_MEMORY_H
#define VELDA_RUNTIME_MEMORY_H

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// New blocks, null when there is no memory; the second is zero-filled. `module` and `line` say who asked.
VELDA_EXPORT void *VELDAmalloc(DP *dp, size_t size, const char *module, int line);
VELDA_EXPORT void *VELDAcalloc(DP *dp, size_t count, size_t size, const char *module, int line);
// A null block allocates; when there is no memory the old block stays as it is.
VELDA_EXPORT void *VELDArealloc(DP *dp, void *block, size_t size, const char *module, int line);
// A null block is left alone.
VELDA_EXPORT void VELDAfree(DP *dp, void *block, const char *module, int line);
// Frees `*block` and sets it to null. `block` is the address of a pointer.
VELDA_EXPORT void VELDAfreezero(DP *dp, void *block, const char *module, int line);
VELDA_EXPORT char *VELDAstrdup(DP *dp, const char *text, const char *module, int line);
// A buffer for a record of `size` bytes, with room for a zero byte behind it, which is set.
VELDA_EXPORT void *VELDAmalloc_readrecord(DP *dp, size_t size, const char *module, int line);

#ifdef __cplusplus
}
#endif

#endif
