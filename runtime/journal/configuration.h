// configuration.h - the mapped configuration of the journal and the locks around it. Private to the runtime.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "runtime/base/result.h"
#include "runtime/journal/change_lock.h"
#include "runtime/journal/journal.h"

namespace velda::journal {

// One configuration file, mapped. It is never unmapped: sessions keep the record's address.
struct Configuration {
    std::string path;
    dev_t device = 0;
    ino_t inode = 0;
    VELDALoggerConfig *record = nullptr;
    std::unique_ptr<LockFile> lock_file;  // guards the record between processes
};

// The directory in which the configuration, the lock file and the first administration log lie.
std::string configuration_directory();

// The configuration of the present environment, mapped at its first use.
Result<Configuration *> map_configuration();

// What a session knows of the journal.
struct JournalSession {
    ~JournalSession();

    Configuration *configuration = nullptr;
    std::string error;  // of the last failed VediLoggerInit
    HeldLock table_lock;
    HeldLock change_lock;
};

// The session's configuration, mapped if need be.
Result<Configuration *> configuration_of(DP *dp);

// The configuration if it is there; null without a journal. Errors count as none.
Configuration *configuration_or_null(DP *dp);

}  // namespace velda::journal
