// statement_bench: READ, WRITE, SELECT with READNEXT and OPEN against raw LMDB and SQLite, each row a figure measured
// in one run.
//
//   statement_bench [FILTER] [RECORDS]
//
// runs the rows whose name holds FILTER, over a file of RECORDS records (1,000,000) of 200 bytes.
#include "bench/raw_lmdb.h"
#include "runtime/file/file.h"
#include "runtime/process/process.h"
#include "runtime/store/driver.h"
#include "runtime/value/value.h"

namespace velda::bench {
namespace {

// A file as a program has it: a cell, in a session.
class StatementFile {
  public:
    StatementFile(const Run &run, const std::string &name, const char *durability, std::size_t count)
        : dp(velda_getdp()) {
        const std::string path = run.path(name);
        const VAR operands("DATA\xFE" + path +
                           "\xFE"
                           "DURABILITY=" +
                           durability),
            wanted(path);
        if (velda_create_file(dp, &operands, nullptr) != 1) give_up("cannot make " + path);
        if (VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &wanted, &cell, nullptr) != 1) give_up("cannot open " + path);
        fill(path, count);
    }

    void read(const VAR &key) {
        if (VLibFNEWREAD_IIBBBIB(dp, 0, &cell, &record, &key, 0, nullptr) != 1) give_up("a record is missing");
    }
    void write(const VAR &key, const VAR &content) {
        if (VLibFNEWWRITE_IIBBBIB(dp, 0, &cell, &content, &key, 0, nullptr) != 1) give_up("a write failed");
    }
    // SELECT, READNEXT of every key, READ of each record.
    void scan(std::size_t count) {
        VAR list, key;
        std::size_t seen = 0;
        VLibFSELECT_IBBB(dp, &cell, &list, nullptr);
        for (; VLibFREADNEXT_IBBBBB(dp, &key, nullptr, nullptr, &list, nullptr) == 1; ++seen) read(key);
        if (seen != count) give_up("the walk missed records");
    }

    DP *dp;
    VAR cell;
    VAR record;

  private:
    // In batches, beneath the statements: what is measured comes later.
    static void fill(const std::string &path, std::size_t count) {
        auto file = store::open_file(path);
        if (!file) give_up(file.error().message);
        const std::string content(RecordBytes, 'r');
        for (std::size_t at = 0; at < count;) {
            std::vector<std::string> keys;
            std::vector<store::Update> updates;
            for (const std::size_t end = std::min(count, at + 10000); at < end; ++at) keys.push_back(key_of(at));
            for (const auto &key : keys) updates.push_back({key, content});
            if (const auto done = (*file)->apply(updates, store::TransferMode::Default); !done)
                give_up(done.error().message);
        }
        if (const auto done = (*file)->sync(); !done) give_up(done.error().message);
    }
};

std::vector<VAR> cells_of(const std::vector<std::string> &keys) { return {keys.begin(), keys.end()}; }

void bench_reads(const Run &run) {
    if (!run.wanted("READ of 200 bytes") && !run.wanted("SELECT, READNEXT, READ")) return;
    RawFile raw(run.path("raw"), LazyFlags & ~MDB_WRITEMAP);
    raw.fill(run.record_count);
    StatementFile ours(run, "ours", "LAZY", run.record_count);
    const auto keys = random_keys(400000, run.record_count);
    const auto cells = cells_of(keys);
    if (run.wanted("READ of 200 bytes")) {
        compare(
            "READ of 200 bytes, of raw LMDB", 0.60, keys.size(),
            [&] {
                for (const auto &key : keys) raw.read(key);
            },
            [&] {
                for (const auto &key : cells) ours.read(key);
            });
    }
    if (run.wanted("SELECT, READNEXT, READ")) {
        compare(
            "SELECT, READNEXT, READ, of raw LMDB cursor", 0.40, run.record_count, [&] { raw.scan(); },
            [&] { ours.scan(run.record_count); });
    }
}

void bench_lazy_writes(const Run &run) {
    if (!run.wanted("WRITE lazy")) return;
    constexpr std::size_t Among = 100000;
    StatementFile file(run, "lazy", "LAZY", Among);
    const auto keys = random_keys(30000, Among);
    const auto cells = cells_of(keys);
    const std::string record(RecordBytes, 'w');
    const VAR record_cell(record);
    const auto ours = [&] {
        for (const auto &key : cells) file.write(key, record_cell);
    };
    RawFile raw(run.path("raw-lazy"), LazyFlags);
    raw.fill(Among);
    compare(
        "WRITE lazy, of raw LMDB", 0.60, keys.size(),
        [&] {
            for (const auto &key : keys) raw.put_and_commit(key, record);
        },
        ours);
    SqliteFile sqlite(run.path("sqlite"), Among);
    compare(
        "WRITE lazy, of SQLite WAL synchronous=NORMAL", 5.0, keys.size(),
        [&] {
            for (const auto &key : keys) sqlite.put_and_commit(key);
        },
        ours);
}

void bench_sync_writes(const Run &run) {
    if (!run.wanted("WRITE sync")) return;
    constexpr std::size_t Among = 10000;
    constexpr int Rounds = 15;  // short ones: the speed of a disk changes from second to second
    StatementFile file(run, "sync", "SYNC", Among);
    RawFile raw(run.path("raw-sync"), 0);
    raw.fill(Among);
    const auto keys = random_keys(60, Among);
    const auto cells = cells_of(keys);
    const std::string record(RecordBytes, 'w');
    const VAR record_cell(record);
    compare(
        "WRITE sync, of raw LMDB", 0.85, keys.size(),
        [&] {
            for (const auto &key : keys) raw.put_and_commit(key, record);
        },
        [&] {
            for (const auto &key : cells) file.write(key, record_cell);
        },
        Rounds);
}

void bench_open(const Run &run) {
    if (!run.wanted("OPEN")) return;
    const StatementFile file(run, "open", "SYNC", 1);
    const VAR name(run.path("open"));
    VAR target;
    time_each("OPEN of a file that is open", 2.0, [&] {
        if (VLibFNEWOPEN_IIBBBB(file.dp, 0, nullptr, &name, &target, nullptr) != 1)
            give_up("cannot open the file again");
    });
}

}  // namespace
}  // namespace velda::bench

int main(int count, char **words) {
    const velda::bench::Run run(count, words);
    setenv("VELDAGLOBALDIR", run.path("global").c_str(), 1);
    velda::bench::bench_reads(run);
    velda::bench::bench_lazy_writes(run);
    velda::bench::bench_sync_writes(run);
    velda::bench::bench_open(run);
}
