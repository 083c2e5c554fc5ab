// control_block.h - what an open file's cell addresses: the control block of the file-driver layer with its private
// part. Private to the runtime; the statement level makes these blocks for its cells, VediOpen for callers of its own.
//
// The public type (vedi.h) fixes the size and the two flag words, because callers allocate it and native logic tests
// them. It begins with the Handle that cells share, so that VAR::text of a file cell may be cast to either.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "runtime/base/handle.h"
#include "runtime/store/driver.h"
#include "runtime/store/vedi.h"

namespace velda::store {

// The private part: lives inside the bytes that the public type reserves for it.
struct ControlBlockContent {
    std::shared_ptr<OpenFile> file;
    std::string name;  // as the caller gave it, such as "DICT ORDERS"
    TransferMode read_mode = TransferMode::Default;
    TransferMode write_mode = TransferMode::Default;
};
static_assert(sizeof(ControlBlockContent) <= sizeof(VediControlBlock::reserved));
static_assert(alignof(ControlBlockContent) <= 8);

// The private part of an open block. The caller has checked that the block is open.
inline ControlBlockContent &content_of(VediControlBlock &block) {
    return *reinterpret_cast<ControlBlockContent *>(block.reserved);
}
inline const ControlBlockContent &content_of(const VediControlBlock &block) {
    return *reinterpret_cast<const ControlBlockContent *>(block.reserved);
}

// The block whose private part this is.
inline VediControlBlock &block_of(ControlBlockContent &content) {
    return *reinterpret_cast<VediControlBlock *>(reinterpret_cast<char *>(&content) -
                                                 offsetof(VediControlBlock, reserved));
}

inline Handle &handle_of(VediControlBlock &block) { return *reinterpret_cast<Handle *>(&block); }

// Makes an open block out of 312 raw bytes, whatever they hold; flags come from the file's settings. The handle has one
// reference and no operations: the statement level sets its own.
void construct_control_block(VediControlBlock &block, std::shared_ptr<OpenFile> file, std::string name);

// Closes: drops the share of the file and leaves a block that only construct_control_block may touch again.
void destroy_control_block(VediControlBlock &block);

// False for null and for a block that is not open (closed, or never opened and zero-filled).
bool is_open(const VediControlBlock *block);

}  // namespace velda::store
