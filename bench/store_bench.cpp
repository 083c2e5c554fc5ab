// store_bench: the hashed driver against its peers, each row a ratio measured in one run.
//
//   store_bench [FILTER] [RECORDS]
//
// runs the rows whose name holds FILTER, over a file of RECORDS records (1,000,000) of 200 bytes. Peer and driver take
// turns; a row's figure is the median of the rounds' ratios. "Raw LMDB" is the plainest use of it: one unnamed tree, no
// checks, the same flags.
#include <lmdb.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "runtime/store/driver.h"

namespace {

using velda::store::OpenFile;
using velda::store::TransferMode;

constexpr std::size_t RecordBytes = 200;
constexpr int Rounds = 5;

std::string filter;
std::size_t record_count = 1000000;
std::string folder;

[[noreturn]] void give_up(const std::string &reason) {
    std::fprintf(stderr, "store_bench: %s\n", reason.c_str());
    std::exit(1);
}
void check(int rc) {
    if (rc) give_up(mdb_strerror(rc));
}
template <class T>
T take(velda::Result<T> result) {
    if (!result) give_up(result.error().message);
    return std::move(*result);
}
void take(velda::Result<void> result) {
    if (!result) give_up(result.error().message);
}

double seconds_of(const std::function<void()> &work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool wanted(const std::string &name) { return name.find(filter) != std::string::npos; }

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A row whose figure is the driver's speed over the peer's; `limit` 0 has none.
void compare(const std::string &name, double limit, std::size_t operations, const std::function<void()> &peer,
             const std::function<void()> &ours) {
    std::vector<double> ratios, ours_ns, peer_ns;
    for (int round = 0; round < Rounds; ++round) {
        const double peer_seconds = seconds_of(peer);
        const double our_seconds = seconds_of(ours);
        ratios.push_back(peer_seconds / our_seconds);
        ours_ns.push_back(our_seconds / static_cast<double>(operations) * 1e9);
        peer_ns.push_back(peer_seconds / static_cast<double>(operations) * 1e9);
    }
    const double ratio = median(ratios);
    std::printf("%-44s %6.2f  limit %.2f  %s   (%.0f ns, peer %.0f ns)\n", name.c_str(), ratio, limit,
                ratio >= limit ? "ok" : "MISSED", median(ours_ns), median(peer_ns));
    std::fflush(stdout);
}

std::string key_of(std::size_t number) {
    char key[24];
    std::snprintf(key, sizeof key, "K%09zu", number);
    return key;
}

std::vector<std::string> random_keys(std::size_t count, std::size_t among) {
    std::mt19937 random(42);
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < count; ++i) keys.push_back(key_of(random() % among));
    return keys;
}

// --- the peer
// ------------------------------------------------------------------------------------------------------------

struct RawFile {
    RawFile(const std::string &name, unsigned flags) {
        check(mdb_env_create(&env));
        check(mdb_env_set_mapsize(env, flags & MDB_WRITEMAP ? 512UL << 20 : 4UL << 30));
        check(mdb_env_open(env, (folder + "/" + name).c_str(), MDB_NOSUBDIR | MDB_NOTLS | flags, 0666));
        MDB_txn *txn;
        check(mdb_txn_begin(env, nullptr, 0, &txn));
        check(mdb_dbi_open(txn, nullptr, 0, &dbi));
        check(mdb_txn_commit(txn));
    }
    ~RawFile() { mdb_env_close(env); }
    RawFile(const RawFile &) = delete;
    RawFile &operator=(const RawFile &) = delete;

    void fill(std::size_t count) {
        std::string record(RecordBytes, 'r');
        for (std::size_t at = 0; at < count;) {
            MDB_txn *txn;
            check(mdb_txn_begin(env, nullptr, 0, &txn));
            for (const std::size_t end = std::min(count, at + 10000); at < end; ++at) put(txn, key_of(at), record);
            check(mdb_txn_commit(txn));
        }
    }
    void put(MDB_txn *txn, const std::string &key, const std::string &record) {
        MDB_val k{key.size(), const_cast<char *>(key.data())}, d{record.size(), const_cast<char *>(record.data())};
        check(mdb_put(txn, dbi, &k, &d, 0));
    }
    void put_and_commit(const std::string &key, const std::string &record) {
        MDB_txn *txn;
        check(mdb_txn_begin(env, nullptr, 0, &txn));
        put(txn, key, record);
        check(mdb_txn_commit(txn));
    }

    MDB_env *env = nullptr;
    MDB_dbi dbi = 0;
};

class Buffer : public velda::store::RecordBuffer {
  public:
    char *prepare(std::size_t size_bytes) override {
        if (size_bytes > bytes_.size()) bytes_.resize(size_bytes);
        return bytes_.data();
    }

  private:
    std::vector<char> bytes_;
};

constexpr unsigned LazyFlags = MDB_WRITEMAP | MDB_MAPASYNC | MDB_NOSYNC;

std::shared_ptr<OpenFile> new_file(const std::string &name, velda::store::Durability durability) {
    take(velda::store::create_file(folder + "/" + name, "HL", {.durability = durability, .options = {}}));
    return take(velda::store::open_file(folder + "/" + name));
}

void fill(OpenFile &file, std::size_t count) {
    const std::string record(RecordBytes, 'r');
    std::vector<std::string> keys;
    std::vector<velda::store::Update> updates;
    for (std::size_t at = 0; at < count;) {
        keys.clear(), updates.clear();
        for (const std::size_t end = std::min(count, at + 10000); at < end; ++at) keys.push_back(key_of(at));
        for (const auto &key : keys) updates.push_back({key, record});
        take(file.apply(updates, TransferMode::Default));
    }
}

// --- the rows
// --------------------------------------------------------------------------------------------------------------

void bench_reads() {
    if (!wanted("read") && !wanted("scan")) return;
    RawFile raw("raw", LazyFlags & ~MDB_WRITEMAP);
    raw.fill(record_count);
    const auto file = new_file("ours", velda::store::Durability::Lazy);
    fill(*file, record_count);
    take(file->sync());
    const auto keys = random_keys(400000, record_count);
    MDB_txn *txn;
    check(mdb_txn_begin(raw.env, nullptr, MDB_RDONLY, &txn));
    mdb_txn_reset(txn);
    char copy[4096];
    char key_copy[512];
    if (wanted("read")) {
        const auto peer = [&] {
            for (const auto &key : keys) {
                MDB_val k{key.size(), const_cast<char *>(key.data())}, d;
                check(mdb_txn_renew(txn));
                check(mdb_get(txn, raw.dbi, &k, &d));
                std::memcpy(copy, d.mv_data, d.mv_size);
                mdb_txn_reset(txn);
            }
        };
        Buffer buffer;
        compare("read of 200 bytes, of raw LMDB", 0.60, keys.size(), peer, [&] {
            for (const auto &key : keys)
                if (!take(file->read(key, buffer, TransferMode::Default))) give_up("a record is missing");
        });
    }
    if (wanted("scan")) {
        const auto peer = [&] {
            check(mdb_txn_renew(txn));
            MDB_cursor *cursor;
            check(mdb_cursor_open(txn, raw.dbi, &cursor));
            MDB_val k, d;
            for (int rc = mdb_cursor_get(cursor, &k, &d, MDB_FIRST); rc == 0;
                 rc = mdb_cursor_get(cursor, &k, &d, MDB_NEXT)) {
                std::memcpy(key_copy, k.mv_data, k.mv_size);
                std::memcpy(copy, d.mv_data, d.mv_size);
            }
            mdb_cursor_close(cursor);
            mdb_txn_reset(txn);
        };
        Buffer buffer;
        compare("scan: READNEXT and READ, of raw LMDB cursor", 0.40, record_count, peer, [&] {
            auto cursor = take(file->select(TransferMode::Default));
            while (auto key = take(cursor->next_key())) {
                std::memcpy(key_copy, key->data(), key->size());
                if (!take(file->read({key_copy, key->size()}, buffer, TransferMode::Default)))
                    give_up("a record is missing");
            }
        });
        compare("scan: items, of raw LMDB cursor", 0.40, record_count, peer, [&] {
            auto cursor = take(file->select(TransferMode::Default));
            while (auto item = take(cursor->next_item())) {
                std::memcpy(key_copy, item->key.data(), item->key.size());
                std::memcpy(copy, item->record.data(), item->record.size());
            }
        });
    }
    mdb_txn_abort(txn);
}

void bench_lazy_writes() {
    if (!wanted("write lazy") && !wanted("sqlite")) return;
    constexpr std::size_t Among = 100000;
    const auto file = new_file("lazy", velda::store::Durability::Lazy);
    fill(*file, Among);
    const auto keys = random_keys(30000, Among);
    const std::string record(RecordBytes, 'w');
    const auto ours = [&] {
        for (const auto &key : keys) take(file->write(key, record, TransferMode::Default));
    };
    if (wanted("write lazy")) {
        RawFile raw("raw-lazy", LazyFlags);
        raw.fill(Among);
        compare(
            "write lazy, of raw LMDB", 0.60, keys.size(),
            [&] {
                for (const auto &key : keys) raw.put_and_commit(key, record);
            },
            ours);
    }
    if (!wanted("sqlite")) return;
    sqlite3 *database;
    if (sqlite3_open((folder + "/sqlite").c_str(), &database) != SQLITE_OK) give_up("SQLite does not open");
    const auto run = [&](const char *sql) {
        char *fault = nullptr;
        if (sqlite3_exec(database, sql, nullptr, nullptr, &fault) != SQLITE_OK) give_up(fault);
    };
    run("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; CREATE TABLE f (k TEXT PRIMARY KEY, r BLOB) WITHOUT "
        "ROWID");
    sqlite3_stmt *put;
    sqlite3_prepare_v2(database, "INSERT OR REPLACE INTO f VALUES (?, ?)", -1, &put, nullptr);
    const auto put_one = [&](const std::string &key) {
        sqlite3_bind_text(put, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        sqlite3_bind_blob(put, 2, record.data(), static_cast<int>(record.size()), SQLITE_STATIC);
        if (sqlite3_step(put) != SQLITE_DONE) give_up(sqlite3_errmsg(database));
        sqlite3_reset(put);
    };
    run("BEGIN");
    for (std::size_t i = 0; i < Among; ++i) put_one(key_of(i));
    run("COMMIT");
    compare(
        "write lazy, of sqlite WAL synchronous=NORMAL", 5.0, keys.size(),
        [&] {
            for (const auto &key : keys) put_one(key);
        },
        ours);
    sqlite3_finalize(put);
    sqlite3_close(database);
}

void bench_sync_writes() {
    if (!wanted("write sync")) return;
    constexpr std::size_t Among = 10000;
    RawFile raw("raw-sync", 0);
    raw.fill(Among);
    const auto file = new_file("sync", velda::store::Durability::Sync);
    fill(*file, Among);
    const auto keys = random_keys(300, Among);
    const std::string record(RecordBytes, 'w');
    compare(
        "write sync, of raw LMDB", 0.85, keys.size(),
        [&] {
            for (const auto &key : keys) raw.put_and_commit(key, record);
        },
        [&] {
            for (const auto &key : keys) take(file->write(key, record, TransferMode::Default));
        });
}

void bench_open() {
    if (!wanted("open")) return;
    const auto file = new_file("open", velda::store::Durability::Sync);
    const std::string path = folder + "/open";
    constexpr int Turns = 400, Opens = 500;  // short turns: the median is free of other processes' time
    std::vector<double> times;
    const auto turn = [&] {
        for (int i = 0; i < Opens; ++i) take(velda::store::open_file(path));
    };
    for (int i = 0; i < Turns; ++i) times.push_back(seconds_of(turn) / Opens * 1e6);
    std::printf("%-44s %6.2f  limit %.2f  %s   (microseconds)\n", "open of an open file", median(times), 2.0,
                median(times) < 2.0 ? "ok" : "MISSED");
}

void bench_copy() {
    if (!wanted("copy")) return;
    constexpr std::size_t Count = 50000, Batch = 1000;
    for (const bool lazy : {true, false}) {
        RawFile from("raw-from" + std::to_string(lazy), LazyFlags),
            to("raw-to" + std::to_string(lazy), lazy ? LazyFlags : 0);
        from.fill(Count);
        const auto source = new_file("from" + std::to_string(lazy), velda::store::Durability::Lazy);
        const auto target = new_file("to" + std::to_string(lazy),
                                     lazy ? velda::store::Durability::Lazy : velda::store::Durability::Sync);
        fill(*source, Count);
        const auto peer = [&] {
            MDB_txn *reading, *writing;
            MDB_cursor *cursor;
            check(mdb_txn_begin(from.env, nullptr, MDB_RDONLY, &reading));
            check(mdb_cursor_open(reading, from.dbi, &cursor));
            check(mdb_txn_begin(to.env, nullptr, 0, &writing));
            MDB_val k, d;
            std::size_t done = 0;
            for (int rc = mdb_cursor_get(cursor, &k, &d, MDB_FIRST); rc == 0;
                 rc = mdb_cursor_get(cursor, &k, &d, MDB_NEXT)) {
                check(mdb_put(writing, to.dbi, &k, &d, 0));
                if (++done % Batch) continue;
                check(mdb_txn_commit(writing));
                check(mdb_txn_begin(to.env, nullptr, 0, &writing));
            }
            check(mdb_txn_commit(writing));
            mdb_cursor_close(cursor);
            mdb_txn_abort(reading);
        };
        compare(lazy ? "copy in batches, lazy, of raw LMDB" : "copy in batches, sync, of raw LMDB", 0.50, Count, peer,
                [&] {
                    auto cursor = take(source->select(TransferMode::Default));
                    std::vector<std::string> held(2 * Batch);
                    std::vector<velda::store::Update> updates;
                    const auto send = [&] {
                        take(target->apply(updates, TransferMode::Default));
                        updates.clear();
                    };
                    while (auto item = take(cursor->next_item())) {
                        std::string &key = held[2 * updates.size()], &record = held[2 * updates.size() + 1];
                        key = item->key;
                        record = item->record;
                        updates.push_back({key, record});
                        if (updates.size() == Batch) send();
                    }
                    send();
                });
    }
}

}  // namespace

int main(int count, char **words) {
    if (count > 1) filter = words[1];
    if (count > 2) record_count = std::strtoul(words[2], nullptr, 10);
    std::string name = (std::filesystem::temp_directory_path() / "store-bench-XXXXXX").string();
    if (!mkdtemp(name.data())) give_up("cannot make " + name);
    folder = name;
    bench_reads();
    bench_lazy_writes();
    bench_sync_writes();
    bench_open();
    bench_copy();
    std::filesystem::remove_all(folder);
}
