// log_walk.h - one walk through a source: the state behind scan_log and verify_log. Private to the subsystem.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "journal/log_blocks.h"
#include "journal/log_scan.h"

namespace velda::journal {

// A whole record; else there is none, and Scan::reason_ tells why.
struct Attempt {
    const unsigned char *record = nullptr;
    std::int64_t next = 0;  // where the stream goes on
    std::int64_t at = 0;    // where the record begins, or the fault lies
    bool crosses = false;   // into a block that is in another file
};

// A stretch of the stream that is sound on its own: from the first record that begins in it to behind the last.
struct Stretch {
    std::int64_t begin = -1, end = -1;  // less than 0: nothing is known
    std::int64_t records = 0, record_bytes = 0;
    std::int64_t first_time = 0, last_time = 0;
    int set = -1;
    bool ended = false;
};

struct Stretches {
    std::int64_t bytes = 0;  // of the stream that each covers
    std::vector<Stretch> found;
};

class Scan {
  public:
    Scan(DP *dp, const LogSource &source, LogVisitor &visitor)
        : dp_(dp), source_(source), visitor_(visitor), blocks_(dp, source) {}

    Result<void> open();
    std::int64_t blocks() const { return result_.blocks; }

    // A stretch of so many blocks, looked at by itself.
    Stretch look_at(std::int64_t first_block, std::int64_t blocks);

    // All of the source; what is known of stretches is not looked at again.
    Result<ScanResult> run(Stretches known = {});

  private:
    // A set that was emptied keeps its first block, or one that its file was made with.
    bool is_unused() { return source_.records == 0 && blocks_.view(0).state != BlockState::Good; }

    void scan_stream();
    void scan_member();
    void scan_member_block(std::int64_t row);
    void check_member_number(const BlockView &view);
    Attempt attempt(std::int64_t at);
    Attempt failed(std::int64_t at, std::string reason);
    Attempt failed_at_block(std::int64_t at);
    std::int64_t gather(std::int64_t at, std::int64_t size, unsigned char *to);
    bool tells_place(const LogHeader &header, const LogPlace &place) const;
    bool is_possible(const LogHeader &header) const;
    std::string why_no_record(const LogHeader &header) const;
    bool deliver(const Attempt &whole);
    void check_sequence(const LogHeader &header, std::int64_t at);
    const Stretch *stretch_at(std::int64_t at) const;
    bool follows(const Stretch &stretch) const;
    void pass(const Stretch &stretch);
    bool go_on_behind(std::int64_t &at, const Attempt &failure);
    bool came_meanwhile(std::int64_t at);
    std::int64_t find_record(std::int64_t from);
    std::int64_t find_in_block(std::int64_t number, std::int64_t from);
    void note_dirt(const BlockView &view, std::int64_t from);
    void check_end(std::int64_t at, const Attempt &failure);
    void fault(std::int64_t at, std::string reason);

    std::int64_t block_size() const { return blocks_.block_size(); }
    // Onto data, from the boundary in front of a block.
    std::int64_t normal(std::int64_t at) const {
        if (blocks_.in_block(at) != 0) return at;
        return at + static_cast<std::int64_t>(at == 0 ? FirstBlockData : BlockHeader::Bytes);
    }

    DP *dp_;
    const LogSource &source_;
    LogVisitor &visitor_;
    LogBlocks blocks_;
    ScanResult result_;
    Stretches known_;
    std::vector<unsigned char> assembled_;
    bool is_over_ = false;
    std::string reason_;  // of the last attempt that failed
    // Of the records so far.
    std::int64_t last_time_ = INT64_MIN;
    int set_ = -1, member_file_ = -1;
    bool ended_ = false;
    // Of a search for the next record: faulty blocks on the way, and the first byte that is no zero.
    std::vector<std::pair<std::int64_t, std::string>> passed_;
    std::int64_t dirt_ = -1;
    // Of a file alone.
    std::int64_t last_number_ = -1, last_row_ = -1, step_ = 0;
};

}  // namespace velda::journal
