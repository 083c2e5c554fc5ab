// Stretches of the stream, which threads look at side by side. What is sound on its own and follows what is in front of it
// needs no second look.
#include <algorithm>
#include <atomic>
#include <functional>
#include <system_error>
#include <thread>

#include "journal/log_walk.h"
#include "runtime/base/service_thread.h"

namespace velda::journal {

Stretch Scan::look_at(std::int64_t first_block, std::int64_t blocks) {
    const std::int64_t end = (first_block + blocks) * block_size();
    result_ = ScanResult{};
    result_.blocks = blocks;  // a record that is larger is left to the scan
    last_time_ = INT64_MIN;
    set_ = -1;
    ended_ = false;
    const BlockView &first = blocks_.view(first_block);
    if (first.state != BlockState::Good) return {};
    Stretch stretch;
    stretch.begin = stretch.end = find_in_block(first_block, first_block * block_size() + first.data_begin());
    if (stretch.begin < 0) return {};
    while (stretch.end < end) {
        const Attempt next = attempt(stretch.end);
        if (!next.record) return {};
        if (result_.records == 0) stretch.first_time = LogHeader(next.record).time;
        deliver(next);
        stretch.end = next.next;
    }
    // What has no checksum must be held against all that is in front of it.
    if (result_.has_faults || result_.without_crc > 0) return {};
    stretch.records = result_.records;
    stretch.record_bytes = result_.record_bytes;
    stretch.last_time = last_time_;
    stretch.set = set_;
    stretch.ended = ended_;
    return stretch;
}

const Stretch *Scan::stretch_at(std::int64_t at) const {
    if (known_.found.empty()) return nullptr;
    const std::int64_t begin = normal(at);
    const auto number = static_cast<std::size_t>(begin / known_.bytes);
    if (number >= known_.found.size() || known_.found[number].begin != begin) return nullptr;
    return follows(known_.found[number]) ? &known_.found[number] : nullptr;
}

// Whether check_sequence would find nothing in it, as it found nothing while the stretch was looked at by itself.
bool Scan::follows(const Stretch &stretch) const {
    return !ended_ && stretch.first_time >= last_time_ && (set_ < 0 || stretch.set == set_) && result_.without_crc == 0;
}

void Scan::pass(const Stretch &stretch) {
    result_.records += stretch.records;
    result_.record_bytes += stretch.record_bytes;
    if (result_.has_faults) result_.is_damaged_inside = true;
    last_time_ = stretch.last_time;
    set_ = stretch.set;
    ended_ = stretch.ended;
}

namespace {

class NoVisitor : public LogVisitor {
    bool record(const LogHeader &, const unsigned char *) override { return true; }
    void fault(const LogFault &) override {}
};

// Looks at stretch after stretch until none is left, beside other threads.
void look_at_stretches(DP *dp, const LogSource &source, std::int64_t stretch_blocks, std::vector<Stretch> &found,
                       std::atomic<std::size_t> &next) {
    NoVisitor visitor;
    Scan scan(dp, source, visitor);
    if (!scan.open()) return;
    for (std::size_t number = next++; number < found.size(); number = next++)
        found[number] = scan.look_at(static_cast<std::int64_t>(number) * stretch_blocks, stretch_blocks);
}

// Threads beside this one, until they have done their work.
class Threads {
  public:
    Threads(std::size_t count, const std::function<void()> &work) {
        try {
            while (threads_.size() < count) threads_.push_back(service_thread(work));
        } catch (const std::system_error &) {
            // As many as the system gives: this one does the work too.
        }
    }
    ~Threads() {
        for (std::thread &thread : threads_) thread.join();
    }
    Threads(const Threads &) = delete;
    Threads &operator=(const Threads &) = delete;

  private:
    std::vector<std::thread> threads_;
};

Stretches look_at_all(DP *dp, const LogSource &source, std::int64_t blocks, std::int64_t stretch_blocks) {
    constexpr unsigned MostThreads = 8;
    const unsigned threads = std::min(std::thread::hardware_concurrency(), MostThreads);
    if (threads < 2 || source.is_member || blocks < stretch_blocks) return {};
    Stretches stretches{stretch_blocks * source.block_size,
                        std::vector<Stretch>(static_cast<std::size_t>(blocks / stretch_blocks))};
    std::atomic<std::size_t> next = 0;
    const auto look = [&] { look_at_stretches(dp, source, stretch_blocks, stretches.found, next); };
    {
        const Threads others(std::min<std::size_t>(threads, stretches.found.size()) - 1, look);
        look();
    }
    return stretches;
}

}  // namespace

Result<ScanResult> verify_log(DP *dp, const LogSource &source, LogVisitor &visitor, std::int64_t stretch_blocks) {
    Scan scan(dp, source, visitor);
    if (const auto opened = scan.open(); !opened) return opened.error();
    return scan.run(look_at_all(dp, source, scan.blocks(), stretch_blocks));
}

}  // namespace velda::journal
