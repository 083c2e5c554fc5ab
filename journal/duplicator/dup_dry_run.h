// dup_dry_run.h - what a run would do, counted record by record. Private to the duplicator.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "journal/duplicator/dup_record.h"

namespace velda::journal {

class DryRun {
  public:
    // What becomes of a record. Every record that is counted is one of these.
    enum Fate {
        Done,         // applied to the database, or copied
        Dropped,      // an update of a transaction that is aborted
        Unfinished,   // an update of a transaction that has not ended
        Unsupported,  // a change of an index or a trigger: a warning
        Faulty,       // an error: damaged, refused, or in or out of a transaction against the rules
        Passed,       // nothing to do: bounds of transactions, checkpoints, flushes, discarded records
        Fates
    };

    // Counts what the output would do with the record.
    void count(const LogSelect &output, const unsigned char *record);

    // The counts on standard output.
    void print(DP *dp) const;

    std::uint64_t records(Fate fate) const;
    std::uint64_t records() const { return records_; }
    // The records that would be applied or copied, by file as it is called here, and type.
    using Counts = std::map<std::pair<std::string, RecordType>, std::uint64_t>;
    const Counts &done() const { return done_; }

  private:
    void count_copy(const DupRecord &record);
    void count_replay(const LogSelect &output, const DupRecord &record);
    void count_update(const LogSelect &output, const DupRecord &record, const std::string &file);
    void count_bound(const DupRecord &record);

    std::uint64_t records_ = 0;
    std::uint64_t fates_[Fates] = {};
    Counts done_;
    std::map<std::uint32_t, Counts> transactions_;  // open ones by process, with the updates that they hold
};

}  // namespace velda::journal
