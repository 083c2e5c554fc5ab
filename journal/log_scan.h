// log_scan.h - all records of a set in order, straight from its files: what the commands that dump and verify a journal
// stand on. It reads large pieces, goes on behind damage and tells where that is. It changes nothing, needs no
// journal to be active, and reads sets that are being written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "journal/log_record.h"
#include "runtime/base/result.h"

namespace velda::journal {

// The files to read.
struct LogSource {
    std::vector<std::string> paths;  // all files of a set in their order, or one of them
    int set = 0;                     // 0: given by their names
    bool is_member = false;          // one file of several: its blocks are checked one by one
    bool is_written = false;         // updates go to it now
    std::uint32_t block_size = 0;
    std::int64_t time_first = 0;  // which use of the set
    std::int64_t time_last = 0;   // 0: not known
    std::int64_t records = -1;    // as the set's description counts them; -1: not known
};

// The files of a set of this system, by its description in the configuration; or files by their names, by the
// description in the first one. A file alone is a set of one file when its description says so, else a member.
VELDA_EXPORT Result<LogSource> source_of_set(DP *dp, int set);
VELDA_EXPORT Result<LogSource> source_of_files(DP *dp, const std::vector<std::string> &paths);

// A place in the files of a source.
struct LogPlace {
    std::size_t file = 0;
    std::int64_t offset = 0;
};

struct LogFault {
    LogPlace place;
    std::string reason;
};

class VELDA_EXPORT LogVisitor {
  public:
    virtual ~LogVisitor() = default;
    // A whole record. Its bytes stay until the call returns. False ends the scan.
    virtual bool record(const LogHeader &header, const unsigned char *record) = 0;
    // Damage. The records in it are not given.
    virtual void fault(const LogFault &fault) = 0;
};

struct ScanResult {
    std::int64_t records = 0;
    std::int64_t record_bytes = 0;
    std::int64_t blocks = 0;
    std::int64_t without_crc = 0;
    bool has_faults = false;
    bool is_damaged_inside = false;  // records follow a fault
};

// Reads the source from its start. An error only where a file cannot be opened or read.
VELDA_EXPORT Result<ScanResult> scan_log(DP *dp, const LogSource &source, LogVisitor &visitor);

// As scan_log, for who wants to know of faults: the visitor is not given every record. Several threads look at stretches
// of so many blocks; what is not sound on its own is scanned again in its turn.
VELDA_EXPORT Result<ScanResult> verify_log(DP *dp, const LogSource &source, LogVisitor &visitor,
                                           std::int64_t stretch_blocks = 1024);

// What is wrong with the contents of a whole record: null, or a reason.
const char *content_fault(const LogHeader &header, const unsigned char *record);

}  // namespace velda::journal
