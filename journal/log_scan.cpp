// A scan: record after record through the stream, and from damage on to the next whole record.
#include "journal/log_scan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "journal/log_bytes.h"
#include "journal/log_walk.h"

namespace velda::journal {

namespace {

bool is_complete(const LogHeader &header, const unsigned char *record) {
    return std::memcmp(record + RecordHeader::UpdateTime, record + header.record_size - RecordTrailerBytes,
                       RecordTrailerBytes) == 0;
}

}  // namespace

Result<void> Scan::open() {
    if (source_.block_size < SmallestLogBlock || source_.block_size > LargestLogBlock)
        return Error{EINVAL, "the journal's block size " + std::to_string(source_.block_size) + " is not usable"};
    if (const auto opened = blocks_.open(); !opened) return opened.error();
    result_.blocks = blocks_.count();
    return {};
}

Result<ScanResult> Scan::run(Stretches known) {
    known_ = std::move(known);
    if (source_.is_member)
        scan_member();
    else if (!is_unused())
        scan_stream();
    if (blocks_.failure()) return *blocks_.failure();
    return result_;
}

void Scan::fault(std::int64_t at, std::string reason) {
    result_.has_faults = true;
    visitor_.fault({blocks_.place(at), std::move(reason)});
}

Attempt Scan::failed(std::int64_t at, std::string reason) {
    reason_ = std::move(reason);
    Attempt attempt;
    attempt.at = at;
    return attempt;
}

Attempt Scan::failed_at_block(std::int64_t at) {
    return failed(at - blocks_.in_block(at), blocks_.reason(blocks_.view(blocks_.number_of(at))));
}

// Copies bytes of the stream that lie in several blocks, and gives the place behind them; at a block that is not good,
// less than 0 and by its amount the place in it.
std::int64_t Scan::gather(std::int64_t at, std::int64_t size, unsigned char *to) {
    while (size > 0) {
        at = normal(at);
        const BlockView &view = blocks_.view(blocks_.number_of(at));
        if (view.state != BlockState::Good) return -at;
        const std::int64_t in_block = blocks_.in_block(at), part = std::min(size, block_size() - in_block);
        std::memcpy(to, view.bytes + in_block, static_cast<std::size_t>(part));
        to += part;
        at += part;
        size -= part;
    }
    return at;
}

bool Scan::tells_place(const LogHeader &header, const LogPlace &place) const {
    if (header.offset == place.offset && header.file == place.file) return true;
    if (source_.is_member) return header.offset == place.offset && (member_file_ < 0 || header.file == member_file_);
    return stands_at(header, static_cast<int32_t>(place.file), place.offset, static_cast<int32_t>(source_.paths.size()),
                     block_size());
}

// What a header tells before the whole record is looked at.
bool Scan::is_possible(const LogHeader &header) const {
    return header.has_marker && has_possible_sizes(header) && header.record_size <= result_.blocks * block_size() &&
           header.time >= source_.time_first;
}

std::string Scan::why_no_record(const LogHeader &header) const {
    if (!header.has_marker) return "no record begins here";
    if (!has_possible_sizes(header) || header.record_size > result_.blocks * block_size())
        return "the record's size " + std::to_string(header.record_size) + " with texts of " +
               std::to_string(header.strings_size) + " is impossible";
    if (header.time < source_.time_first)
        return "the record's stamp " + std::to_string(header.time) + " is before the set's";
    return "the record tells that it is of file " + std::to_string(header.file) + " at offset " +
           std::to_string(header.offset);
}

Attempt Scan::attempt(std::int64_t at) {
    at = normal(at);
    const std::int64_t in_block = blocks_.in_block(at);
    const BlockView &view = blocks_.view(blocks_.number_of(at));
    if (view.state != BlockState::Good) return failed_at_block(at);
    const LogPlace place{view.place.file, view.place.offset + in_block};
    const std::int64_t left = block_size() - in_block;
    const unsigned char *record = view.bytes + in_block;
    std::array<unsigned char, RecordHeader::Bytes> gathered;
    if (left < static_cast<std::int64_t>(gathered.size())) {
        if (source_.is_member) return {.at = at, .crosses = true};
        const std::int64_t behind = gather(at, static_cast<std::int64_t>(gathered.size()), gathered.data());
        if (behind < 0) return failed_at_block(-behind);
        record = gathered.data();
    }
    const LogHeader header(record);
    if (!is_possible(header) || !tells_place(header, place)) return failed(at, why_no_record(header));
    std::int64_t behind = at + header.record_size;
    if (left < header.record_size) {
        if (source_.is_member) return {.at = at, .crosses = true};
        assembled_.resize(std::max(assembled_.size(), static_cast<std::size_t>(header.record_size)));
        behind = gather(at, header.record_size, assembled_.data());
        if (behind < 0) return failed_at_block(-behind);
        record = assembled_.data();
    }
    if (!is_complete(header, record))
        return failed(at,
                      "the record of process " + std::to_string(header.pid) + " is incomplete: its trailer differs");
    if (!agrees_with_crc(header, record)) return failed(at, "the record's checksum differs");
    return {.record = record, .next = behind, .at = at};
}

// What a whole record tells in its turn.
void Scan::check_sequence(const LogHeader &header, std::int64_t at) {
    if (ended_) fault(at, "a record stands behind the end of the set");
    if (header.time < last_time_) fault(at, "the record's stamp is earlier than that of the record before");
    if (result_.records <= source_.records && source_.time_last != 0 && header.time > source_.time_last)
        fault(at, "the record's stamp is later than the set's last");
    if (set_ >= 0 && header.set != set_) fault(at, "the record tells that it is of set " + std::to_string(header.set));
    const bool has_crc = header.crc != 0;
    if (!has_crc && result_.without_crc < result_.records - 1) fault(at, "the record has no checksum, unlike others");
    if (has_crc && result_.without_crc == result_.records - 1 && result_.records > 1)
        fault(at, "the record has a checksum, unlike those before");
}

bool Scan::deliver(const Attempt &whole) {
    const LogHeader header(whole.record);
    ++result_.records;
    result_.record_bytes += header.record_size;
    if (result_.has_faults) result_.is_damaged_inside = true;
    if (!source_.is_member) check_sequence(header, whole.at);
    if (header.crc == 0) ++result_.without_crc;
    if (const char *const reason = content_fault(header, whole.record)) fault(whole.at, reason);
    last_time_ = header.time;
    set_ = header.set;
    member_file_ = header.file;
    ended_ = header.type == static_cast<std::uint8_t>(RecordType::Eof);
    return visitor_.record(header, whole.record);
}

void Scan::scan_stream() {
    for (std::int64_t at = 0; !is_over_ && !blocks_.failure();) {
        if (const Stretch *const stretch = stretch_at(at)) {
            pass(*stretch);
            at = stretch->end;
            continue;
        }
        const Attempt next = attempt(at);
        if (next.record) {
            at = next.next;
            is_over_ = !deliver(next);
        } else if (!go_on_behind(at, next)) {
            check_end(at, next);
            return;
        }
    }
}

// To the next whole record behind a failure. False when there is none.
bool Scan::go_on_behind(std::int64_t &at, const Attempt &failure) {
    const std::string reason = reason_;
    passed_.clear();
    dirt_ = -1;
    const std::int64_t found = find_record(normal(at));
    if (found < 0) {
        reason_ = reason;
        return came_meanwhile(at);
    }
    // A size that lies leads into any block: what follows the record shows that the block is not to blame.
    const bool reaches_too_far = found <= failure.at;
    if (reaches_too_far)
        fault(normal(at), "the record's size is wrong: it reaches a place where " + reason);
    else
        fault(failure.at, reason);
    for (auto &[place, why] : passed_)
        if (place != failure.at) fault(place, std::move(why));
    at = found;
    return true;
}

// The writer may just be at work here.
bool Scan::came_meanwhile(std::int64_t at) {
    constexpr int Tries = 10, PauseMilliseconds = 50;
    if (!source_.is_written || dirt_ < 0) return false;
    for (int n = 0; n < Tries; ++n) {
        const VAR pause(PauseMilliseconds);
        VLibEMSLEEP_VB(dp_, &pause);
        blocks_.forget();
        result_.blocks = blocks_.count();
        if (attempt(at).record) return true;
    }
    attempt(at);
    return false;
}

std::int64_t Scan::find_record(std::int64_t from) {
    for (std::int64_t number = from / block_size(); number < result_.blocks; ++number) {
        const BlockView &view = blocks_.view(number);
        if (view.state != BlockState::Good) {
            passed_.emplace_back(number * block_size(), blocks_.reason(view));
            if (view.state == BlockState::Bad && dirt_ < 0) dirt_ = number * block_size();
            continue;
        }
        const std::int64_t begin = std::max(from, number * block_size() + view.data_begin());
        note_dirt(view, begin);
        if (const std::int64_t found = find_in_block(number, begin); found >= 0) return found;
    }
    return -1;
}

void Scan::note_dirt(const BlockView &view, std::int64_t from) {
    if (dirt_ >= 0) return;
    const unsigned char *const end = view.bytes + block_size();
    const unsigned char *const dirt =
        std::find_if(view.bytes + from % block_size(), end, [](unsigned char byte) { return byte != 0; });
    if (dirt != end) dirt_ = view.number * block_size() + (dirt - view.bytes);
}

// The first whole record that begins in a block at or behind a place.
std::int64_t Scan::find_in_block(std::int64_t number, std::int64_t from) {
    const std::int64_t begin = number * block_size(), end = begin + block_size();
    while (from < end) {
        const unsigned char *const bytes = blocks_.view(number).bytes;
        const void *const letter =
            std::memchr(bytes + (from - begin), RecordMarker[0], static_cast<std::size_t>(end - from));
        if (!letter) return -1;
        from = begin + (static_cast<const unsigned char *>(letter) - bytes);
        if (attempt(from).record) return from;
        ++from;
    }
    return -1;
}

// Nothing but zeros and blocks of earlier uses may follow the last record; and it must be the last.
void Scan::check_end(std::int64_t at, const Attempt &failure) {
    if (dirt_ >= 0) {
        const bool is_here = dirt_ - normal(at) < static_cast<std::int64_t>(RecordHeader::Bytes);
        const bool is_block = dirt_ % block_size() == 0;
        if (is_here)
            fault(failure.at, reason_);
        else
            fault(dirt_, is_block ? blocks_.reason(blocks_.view(dirt_ / block_size())) : "no record begins here");
    }
    if (!result_.has_faults && result_.records < source_.records)
        fault(normal(at), "records are missing: the set has " + std::to_string(source_.records) + ", found were " +
                              std::to_string(result_.records));
}

// --- one file of several -------------------------------------------------------------------------------------------

void Scan::scan_member() {
    std::int64_t last_good = -1;
    for (std::int64_t row = 0; row < result_.blocks && !is_over_; ++row)
        if (blocks_.view(row).state == BlockState::Good) last_good = row;
    for (std::int64_t row = 0; row < result_.blocks && !is_over_ && !blocks_.failure(); ++row) {
        const BlockView &view = blocks_.view(row);
        if (view.state == BlockState::Good) {
            check_member_number(view);
            scan_member_block(row);
        } else if (row < last_good || view.state == BlockState::Bad) {
            fault(row * block_size(), blocks_.reason(view));
            if (row < last_good) result_.is_damaged_inside = true;
        }
    }
}

// The numbers of the blocks rise by the number of the set's files.
void Scan::check_member_number(const BlockView &view) {
    const bool is_first = std::memcmp(view.bytes, FirstBlockMarker.data(), FirstBlockMarker.size()) == 0;
    const std::int64_t number =
        is_first ? 0 : static_cast<std::uint32_t>(vgetint32(view.bytes + BlockHeader::BlockNumber));
    if (last_row_ >= 0) {
        const std::int64_t rows = view.number - last_row_, step = (number - last_number_) / rows;
        if (step_ == 0 && step > 0) step_ = step;
        if (step_ == 0 || number != last_number_ + step_ * rows)
            fault(view.number * block_size(),
                  "the block's number " + std::to_string(number) + " does not follow " + std::to_string(last_number_));
    }
    last_row_ = view.number;
    last_number_ = number;
}

// The records that lie in the block from end to end, the first of which has to be searched.
void Scan::scan_member_block(std::int64_t row) {
    const BlockView view = blocks_.view(row);
    const std::int64_t begin = row * block_size(), end = begin + block_size();
    std::int64_t at = find_in_block(row, begin + view.data_begin());
    while (at >= 0 && at < end && !is_over_) {
        const Attempt next = attempt(at);
        if (next.record) {
            at = next.next;
            is_over_ = !deliver(next);
            continue;
        }
        if (next.crosses || are_zeros(view.bytes + (at - begin), end - at)) return;
        fault(next.at, reason_);
        at = find_in_block(row, at + 1);
    }
}

Result<ScanResult> scan_log(DP *dp, const LogSource &source, LogVisitor &visitor) {
    Scan scan(dp, source, visitor);
    if (const auto opened = scan.open(); !opened) return opened.error();
    return scan.run();
}

}  // namespace velda::journal
