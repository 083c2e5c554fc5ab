// configuration.h - the mapped configuration of the journal and the locks around it. Private to the runtime.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "runtime/base/result.h"
#include "runtime/crypt/scheme.h"
#include "runtime/journal/change_lock.h"
#include "runtime/journal/journal.h"
#include "runtime/journal/set_stream.h"

namespace velda::journal {

// One configuration file, mapped. It is never unmapped: sessions keep the record's address.
struct Configuration {
    std::string path;
    dev_t device = 0;
    ino_t inode = 0;
    VELDALoggerConfig *record = nullptr;
    std::unique_ptr<LockFile> lock_file;  // guards the record between processes
    std::unique_ptr<SetStream> stream;    // the set that is being written; used under the append lock
    std::int64_t looked_at_files = 0;     // when its files were last found in place
};

// The directory in which the configuration, the lock file and the first administration log lie.
std::string configuration_directory();

// The configuration of the present environment, mapped at its first use.
Result<Configuration *> map_configuration();

// Whether a number is that of a set; the current set's is none while there is none.
inline bool is_set(std::uint32_t number) { return number >= 1 && number <= VELDA_LOGGER_SETS; }

// For how long a session believes that there is no configuration: who makes one waits that long before it is used.
inline constexpr std::int64_t MissingConfigurationNanoseconds = 20'000'000;

// A clock that costs next to nothing and moves every few milliseconds.
std::int64_t coarse_nanoseconds();

// What extended records tell of a session. Asked for when the first is made.
struct SessionTexts {
    std::string user, terminal, account;
    std::string source_file, source_line;  // given by the session
};

// What a session knows of the journal.
struct JournalSession {
    ~JournalSession();

    Configuration *configuration = nullptr;
    std::string error;            // of the last failed VediLoggerInit
    bool stays_out = false;       // its updates are not journalled
    bool in_transaction = false;  // between the records of a transaction's start and end
    bool is_under_way_with_transaction = false;
    UnderWaySlot *slot = nullptr;   // the session's own while it is under way
    int depth = 0;                  // how deep it is under way
    std::int64_t looked_until = 0;  // when a configuration that was missing is looked for again, monotonic nanoseconds
    SessionTexts texts;
    crypt::KeyRing keys;          // for enciphered records
    std::int32_t port = 0;        // 0: not asked for yet
    std::int32_t stands_for = 0;  // the dead process in whose name it appends; 0: none
    HeldLock table_lock;
    HeldLock change_lock;
};

// The session's configuration, mapped if need be.
Result<Configuration *> configuration_of(DP *dp);

// 0, or the error number of a failure, whose message becomes the session's.
int number_of(DP *dp, const Result<void> &result);

// The configuration when this session's updates are to be journalled: null while the journal is inactive, without one,
// and for a session that stays out. Costs a few nanoseconds.
Configuration *journal_of_updates(DP *dp);

// The configuration if it is there; null without a journal. Errors count as none.
Configuration *configuration_or_null(DP *dp);

}  // namespace velda::journal
