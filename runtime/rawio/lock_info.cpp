// lock_info.cpp - what lock reports know a file and a key by.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "runtime/lock/record_lock.h"
#include "runtime/rawio/raw_file.h"
#include "runtime/store/control_block.h"

int VELDAGetSingleLockInfo(DP *, const VAR *file, const VAR *key, VAR *inode, VAR *device, VAR *hash) {
    const auto *const block = file->is_file() ? reinterpret_cast<const VediControlBlock *>(file->text) : nullptr;
    if (!velda::store::is_open(block)) return EINVAL;
    const auto identity = velda::store::content_of(*block).file->identity();
    const auto key_hash = static_cast<std::int64_t>(velda::lock_hash(key->view()));
    *inode = identity.inode;
    *device = identity.device;
    *hash = key_hash;
    return 0;
}

int VELDAGetSingleLockInfoFlatFile(DP *, const VAR *path, VAR *inode, VAR *device) {
    std::string native = path->str();
    std::replace(native.begin(), native.end(), '\\', '/');
    struct stat status;
    if (stat(native.c_str(), &status) != 0) return errno;
    *inode = status.st_ino;
    *device = status.st_dev;
    return 0;
}
