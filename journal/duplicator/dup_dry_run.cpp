// A run that writes nothing: the rules of replay and of copying, with counts in the place of their effects.
#include "journal/duplicator/dup_dry_run.h"

#include <cinttypes>
#include <iterator>
#include <numeric>
#include <string_view>
#include <vector>

#include "journal/duplicator/dup_path.h"

namespace velda::journal {

namespace {

std::uint64_t total(const DryRun::Counts &counts) {
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const auto &entry) { return sum + entry.second; });
}

// A text of the payload that has its length at one place and its bytes at another.
std::string_view payload_text(const DupRecord &record, std::size_t length_at, std::size_t text_at) {
    PayloadReader lengths(record.payload), texts(record.payload);
    lengths.text(length_at);
    texts.text(text_at);
    return texts.text(lengths.number());
}

// The names that a record acts on: those of its payload, or else its file's.
std::vector<std::string_view> names_of(const DupRecord &record) {
    switch (record.type) {
        case RecordType::RemoveFile:
            return {payload_text(record, PathPayload::Length, PathPayload::Text)};
        case RecordType::MakeDirectory:
            return {payload_text(record, DirectoryPayload::PathLength, DirectoryPayload::Path)};
        case RecordType::FlatFile:
            return {payload_text(record, FlatFilePayload::PathLength, FlatFilePayload::Path)};
        case RecordType::MoveFile: {
            PayloadReader payload(record.payload);
            const std::uint32_t from_size = payload.number(), to_size = payload.number();
            const std::string_view from = payload.text(from_size);
            payload.text(1);
            return {from, payload.text(to_size)};
        }
        default:
            return {record.file_name};
    }
}

bool is_bound(RecordType type) {
    return type == RecordType::TranStart || type == RecordType::TranEnd || type == RecordType::TranAbort;
}

// Types that replay acts on, besides updates and the bounds of transactions.
bool changes_files(RecordType type) {
    return (type >= RecordType::ClearFile && type <= RecordType::CreateFile) ||
           (type >= RecordType::MoveFile && type <= RecordType::FlatFile);
}

bool is_index_or_trigger(RecordType type) {
    return type >= RecordType::CreateIndex && type <= RecordType::DeleteTrigger;
}

struct FateLine {
    DryRun::Fate fate;
    const char *words;
};

constexpr FateLine FateLines[] = {
    {DryRun::Done, "would be applied or copied"},
    {DryRun::Dropped, "updates of aborted transactions, dropped"},
    {DryRun::Unfinished, "updates of transactions without an end, not applied"},
    {DryRun::Unsupported, "changes of indexes and triggers, not supported"},
    {DryRun::Faulty, "errors"},
    {DryRun::Passed, "with nothing to do"},
};
static_assert(std::size(FateLines) == DryRun::Fates);

}  // namespace

void DryRun::count(const LogSelect &output, const unsigned char *bytes) {
    ++records_;
    DupRecord record;
    const bool is_whole = take_apart(bytes, record);
    if (output.deviceType == Null)
        ++fates_[Passed];
    else if (!is_whole)
        ++fates_[Faulty];
    else if (output.deviceType == Database)
        count_replay(output, record);
    else
        count_copy(record);
}

void DryRun::count_copy(const DupRecord &record) {
    if (record.type == RecordType::Eof || record.type == RecordType::Flush) {
        ++fates_[Passed];
        return;
    }
    ++done_[{std::string(record.file_name), record.type}];
}

void DryRun::count_replay(const LogSelect &output, const DupRecord &record) {
    std::string file;
    bool refused = false, lacks_name = false;
    for (const std::string_view name : names_of(record)) {
        const std::string path = renamed_path(output, name);
        refused = refused || is_refused(path);
        lacks_name = lacks_name || path.empty();
        file += (file.empty() ? "" : " -> ") + path;
    }
    if (refused) {
        ++fates_[Faulty];
    } else if (record.type == RecordType::Write || record.type == RecordType::Delete) {
        count_update(output, record, file);
    } else if (is_bound(record.type)) {
        if (output.flags & SelectNoTrans)
            ++fates_[Passed];
        else
            count_bound(record);
    } else if (changes_files(record.type)) {
        if (lacks_name)
            ++fates_[Faulty];
        else
            ++done_[{file, record.type}];
    } else if (is_index_or_trigger(record.type)) {
        ++fates_[Unsupported];
    } else {
        const bool is_known =
            record.type == RecordType::Eof || record.type == RecordType::Flush || record.type == RecordType::Checkpoint;
        ++fates_[is_known ? Passed : Faulty];
    }
}

void DryRun::count_update(const LogSelect &output, const DupRecord &record, const std::string &file) {
    const bool is_held = record.in_transaction && !(output.flags & SelectNoTrans);
    const auto transaction = transactions_.find(record.pid);
    if (is_held && transaction != transactions_.end())
        ++transaction->second[{file, record.type}];
    else if (is_held || file.empty())
        ++fates_[Faulty];
    else
        ++done_[{file, record.type}];
}

void DryRun::count_bound(const DupRecord &record) {
    const auto transaction = transactions_.find(record.pid);
    const bool is_open = transaction != transactions_.end();
    const bool is_start = record.type == RecordType::TranStart;
    ++fates_[is_start == is_open ? Faulty : Passed];
    if (is_start == is_open) return;
    if (is_start) {
        transactions_[record.pid];
        return;
    }
    if (record.type == RecordType::TranAbort)
        fates_[Dropped] += total(transaction->second);
    else
        for (const auto &[what, count] : transaction->second)
            what.first.empty() ? fates_[Faulty] += count : done_[what] += count;
    transactions_.erase(transaction);
}

std::uint64_t DryRun::records(Fate fate) const {
    if (fate == Done) return total(done_);
    std::uint64_t records = fates_[fate];
    if (fate == Unfinished)
        for (const auto &[pid, held] : transactions_) records += total(held);
    return records;
}

void DryRun::print(DP *dp) const {
    VELDAprintf(dp, "Dry run: nothing was written.\n\n%12s  %-12s  %s\n", "Records", "Type", "File");
    for (const auto &[what, count] : done_) {
        const auto type = static_cast<std::size_t>(what.second);
        const std::string_view name = type < RecordTypeNames.size() ? RecordTypeNames[type] : "UNKNOWN";
        VELDAprintf(dp, "%12" PRIu64 "  %-12s  %s\n", count, std::string(name).c_str(), what.first.c_str());
    }
    VELDAprintf(dp, "\n%12" PRIu64 "  records read\n", records_);
    for (const FateLine &line : FateLines)
        if (const std::uint64_t count = records(line.fate)) VELDAprintf(dp, "%12" PRIu64 "  %s\n", count, line.words);
    VELDAfflush(dp, stdout);
}

}  // namespace velda::journal
