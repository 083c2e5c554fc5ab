// page_walk.h - a hashed file's pages walked byte by byte, without LMDB: for what must be known before LMDB may follow
// a page number, and for CHECK-FILE. Every page is read with pread and every offset checked, so no damage can crash it.
#pragma once

#include <cstdint>
#include <string>

#include "runtime/base/result.h"
#include "runtime/store/driver.h"
#include "runtime/store/file_label.h"

namespace velda::store {

// Checks the trees' roots as transaction number `transaction` left them, and, when the file is shorter than it should
// be, that all of it that is in use is there. The caller holds a snapshot of that transaction.
Result<void> check_before_use(int descriptor, const FileHead &head, std::uint64_t transaction, const std::string &path);

struct WalkResult {
    std::uint64_t records = 0;   // that could be read
    std::uint64_t findings = 0;  // that were reported
};

// Walks every page of every tree and reports each fault with its page; goes on past damage where it can.
WalkResult walk_pages(int descriptor, const FileHead &head, std::uint64_t transaction, const CheckReport &report);

}  // namespace velda::store
