// replay_bench: journal records applied to the database, against LMDB used in the plainest way, and against the redo of
// PostgreSQL 15 and the load of Redis 7 where they are installed (tools/bootstrap bench).
//
//   replay_bench [FILTER] [RECORDS]
//
// runs the rows whose name holds FILTER, over a log set of RECORDS records (1,000,000) of 200 bytes under random keys.
#include <array>
#include <filesystem>
#include <memory>

#include "bench/peer.h"
#include "bench/raw_lmdb.h"
#include "journal/duplicator/duplicator.h"
#include "journal/journal.h"
#include "runtime/store/driver.h"
#include "tests/support/journal_builder.h"

namespace velda::bench {
namespace {

constexpr std::int64_t SetTime = 1700000000;

struct CommandBody {
    const std::function<void()> &body;
    static void run(DP *, void *argument) { static_cast<CommandBody *>(argument)->body(); }
};

void as_command(DP *dp, const std::function<void()> &body) {
    CommandBody command{body};
    if (const int code = velda_run(dp, "vlogdup", CommandBody::run, &command))
        give_up("exit code " + std::to_string(code));
}

// A log set of WRITE records, in one file.
class LogSet {
  public:
    LogSet(DP *dp, const std::string &path, const std::string &file, const std::vector<std::string> &keys)
        : dp_(dp), set_({path}, SetTime) {
        const std::string data(RecordBytes, 'w');
        for (const std::string &key : keys) {
            test::BuiltRecord record = test::write_record(file, key, data);
            record.has_crc = false;
            set_.add(record);
        }
        set_.write();
        VELDALoggerGetDefinition(dp);
        VELDALoggerConfig &config = *VediLoggerInit(dp, 1);
        set_.configure(config);
        config.currentSet = 1;
    }

    // One run from the set into the database.
    void replay(bool exclusive) {
        as_command(dp_, [&] {
            journal::DupContext &context = journal::start_dup_context(dp_);
            context.exclusive = exclusive;
            context.input = VELDALoggerSelectStart(dp_, "set=1 terminate=eos", 0, nullptr);
            context.output = VELDALoggerSelectStart(dp_, "set=database", 1, nullptr);
            if (!context.input || !context.output) give_up("the run cannot begin");
            const int code = journal::run_duplicator(dp_);
            if (code == 0 && context.slot->outputRecords != static_cast<std::uint64_t>(set_.records()))
                give_up("records are missing");
            journal::DupExit(dp_, code);
        });
    }

  private:
    DP *const dp_;
    test::SetBuilder set_;
};

// A new lazy file, open as long as the result lives: what its last close does for the disk is no part of the replay.
std::shared_ptr<store::OpenFile> make_lazy_file(const std::string &path) {
    if (auto made = store::create_file(path, "HL", {.durability = store::Durability::Lazy, .options = {}}); !made)
        give_up(made.error().message);
    auto opened = store::open_file(path);
    if (!opened) give_up(opened.error().message);
    return *opened;
}

// Another program that applies as many rows.
struct Peer {
    const char *row, *script;
    double limit;
    double earlier_rows_a_second;  // measured before, elsewhere: stands in where the program is not installed
};

constexpr Peer Peers[] = {{"replay -x, of PostgreSQL 15's redo", "pg_redo_peer", 1.5, 180000},
                          {"replay -x, wanted: of Redis 7 loading its log", "redis_load_peer", 1, 600000}};

void compare_rate(const Peer &peer, double rows_a_second, std::size_t rows) {
    const double measured = peer_rate(peer.script, rows);
    const double peer_rows = measured > 0 ? measured : peer.earlier_rows_a_second;
    const double ratio = rows_a_second / peer_rows;
    std::printf("%-48s %6.2f  limit %.2f  %s   (thousand rows a second: %.0f, peer %.0f%s)\n", peer.row, ratio,
                peer.limit, ratio >= peer.limit ? "ok" : "MISSED", rows_a_second / 1000, peer_rows / 1000,
                measured > 0 ? "" : ", which is not installed: figure of an earlier run");
    std::fflush(stdout);
}

void bench_exclusive(const Run &run, DP *dp) {
    if (!run.wanted("replay -x")) return;
    const auto keys = random_keys(run.record_count, run.record_count);
    const std::string file = run.path("replica");
    LogSet set(dp, run.path("set"), file, keys);
    const std::string record(RecordBytes, 'w');
    std::unique_ptr<RawFile> raw;
    std::shared_ptr<store::OpenFile> replica;
    int round = 0;
    double seconds = 0;
    std::vector<double> rates;
    compare(
        "replay -x, of raw LMDB in batches of 1,000", 0.60, keys.size(),
        [&] { raw->put_in_batches(keys, record, 1000); },
        [&] {
            seconds = seconds_of([&] { set.replay(true); });
            rates.push_back(static_cast<double>(keys.size()) / seconds);
        },
        3,
        [&] {
            raw.reset();
            raw = std::make_unique<RawFile>(run.path("raw" + std::to_string(++round)), LazyFlags);
            replica.reset();
            if (auto gone = store::destroy_file(file); !gone && gone.error().number != 2) give_up(gone.error().message);
            replica = make_lazy_file(file);
        });
    for (const Peer &peer : Peers) compare_rate(peer, median(rates), keys.size());
}

void bench_shared(const Run &run, DP *dp) {
    if (!run.wanted("replay lazy")) return;
    constexpr std::size_t Among = 100000;
    const auto keys = random_keys(std::min<std::size_t>(run.record_count, 100000), Among);
    const std::string file = run.path("shared");
    LogSet set(dp, run.path("set"), file, keys);
    const std::string record(RecordBytes, 'w');
    const auto replica = make_lazy_file(file);
    set.replay(true);
    RawFile raw(run.path("raw-shared"), LazyFlags);
    raw.put_in_batches(keys, record, 1000);  // as the replay above made its file
    compare(
        "replay lazy, of raw LMDB committing each", 0.60, keys.size(),
        [&] {
            for (const auto &key : keys) raw.put_and_commit(key, record);
        },
        [&] { set.replay(false); });
}

std::size_t open_descriptors() {
    std::size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) count += !entry.path().empty();
    return count;
}

std::size_t bucket_of(const std::string &name) {
    return VediBaseHashUINT(name.data(), static_cast<std::uint32_t>(name.size()), VEDI_HASH_CASE_BLIND) %
           journal::CacheBuckets;
}

// As many files as the cache holds: every bucket full.
std::vector<std::string> files_that_fill_the_cache(const Run &run) {
    std::array<std::size_t, journal::CacheBuckets> filled{};
    std::vector<std::string> files;
    for (int number = 0; files.size() < journal::CacheBuckets * journal::CachedFilesOfBucket; ++number) {
        const std::string name = run.path("f" + std::to_string(number));
        if (++filled[bucket_of(name)] > journal::CachedFilesOfBucket) continue;
        files.push_back(name);
    }
    return files;
}

std::size_t files_cached(const journal::DupContext &context) {
    std::size_t count = 0;
    for (const auto &bucket : context.fileCache)
        for (const auto &cached : bucket) count += cached.file != nullptr;
    return count;
}

// A record for each file in turn, applied once to warm the cache and then again.
void bench_cache(const Run &run, DP *dp) {
    if (!run.wanted("cache")) return;
    const auto files = files_that_fill_the_cache(run);
    std::vector<std::string> records;
    for (const std::string &file : files) {
        if (auto made = store::create_file(file, "HL", {.durability = store::Durability::Lazy, .options = {}}); !made)
            give_up(made.error().message);
        records.push_back(test::record_bytes(test::write_record(file, "key", std::string(RecordBytes, 'w')), 1, 0, 0));
    }
    LogSelect input, output;
    input.deviceType = journal::LogSetDevice;
    output.deviceType = journal::Database;
    journal::DupContext &context = journal::start_dup_context(dp);
    context.input = &input;
    context.output = &output;
    const auto apply_all = [&] {
        as_command(dp, [&] {
            for (const std::string &record : records)
                journal::DupApply(dp, reinterpret_cast<const unsigned char *>(record.data()));
        });
    };
    const double cold = seconds_of(apply_all);
    const std::size_t descriptors = open_descriptors();
    apply_all();  // a file that rested since its first update is marked as in use again
    const double warm = seconds_of(apply_all);
    const std::size_t cached = files_cached(context);
    const bool is_kept = cached == files.size() && open_descriptors() == descriptors;
    std::printf("%-48s %6zu  limit %zu  %s   (%.1f us a record, cold %.1f; %zu descriptors)\n",
                "cache: files that stay open, none opened again", cached, files.size(), is_kept ? "ok" : "MISSED",
                warm / static_cast<double>(records.size()) * 1e6, cold / static_cast<double>(records.size()) * 1e6,
                descriptors);
    context.input = context.output = nullptr;
    journal::close_all_cached(dp, context);
}

}  // namespace
}  // namespace velda::bench

int main(int count, char **words) {
    using namespace velda::bench;
    const Run run(count, words);
    setenv("VELDAGLOBALDIR", run.folder.c_str(), 1);
    setenv("VBCRELEASEDIR", VELDA_SOURCE_DIR "/share", 1);
    DP *const dp = velda_getdp();
    bench_exclusive(run, dp);
    bench_shared(run, dp);
    bench_cache(run, dp);
}
