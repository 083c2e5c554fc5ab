// raw_lmdb.h - what the benchmarks of the store and of the statements share: rows that compare with a peer in one run,
// and the peers: LMDB used in the plainest way (one unnamed tree, no checks, the same flags), and SQLite.
#pragma once

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

namespace velda::bench {

inline constexpr std::size_t RecordBytes = 200;
inline constexpr unsigned LazyFlags = MDB_WRITEMAP | MDB_MAPASYNC | MDB_NOSYNC;

[[noreturn]] inline void give_up(const std::string &reason) {
    std::fprintf(stderr, "benchmark: %s\n", reason.c_str());
    std::exit(1);
}

inline void check(int rc) {
    if (rc) give_up(mdb_strerror(rc));
}

// What a run was asked for: rows whose name holds `filter`, files of `record_count` records, in a scratch `folder`.
struct Run {
    Run(int count, char **words) {
        if (count > 1) filter = words[1];
        if (count > 2) record_count = std::strtoul(words[2], nullptr, 10);
        folder = (std::filesystem::temp_directory_path() / "velda-bench-XXXXXX").string();
        if (!mkdtemp(folder.data())) give_up("cannot make " + folder);
    }
    ~Run() { std::filesystem::remove_all(folder); }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    bool wanted(const std::string &name) const { return name.find(filter) != std::string::npos; }
    std::string path(const std::string &name) const { return folder + "/" + name; }

    std::string filter;
    std::size_t record_count = 1000000;
    std::string folder;
};

inline double seconds_of(const std::function<void()> &work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A row whose figure is our speed over the peer's. Peer and we take turns; the figure is the median of the rounds'
// ratios. `prepare` runs before each round and `prepare_ours` before our turn, outside the time taken.
inline void compare(
    const std::string &name, double limit, std::size_t operations, const std::function<void()> &peer,
    const std::function<void()> &ours, int rounds = 5, const std::function<void()> &prepare = [] {},
    const std::function<void()> &prepare_ours = [] {}) {
    std::vector<double> ratios, ours_ns, peer_ns;
    for (int round = 0; round < rounds; ++round) {
        prepare();
        const double peer_seconds = seconds_of(peer);
        prepare_ours();
        const double our_seconds = seconds_of(ours);
        ratios.push_back(peer_seconds / our_seconds);
        ours_ns.push_back(our_seconds / static_cast<double>(operations) * 1e9);
        peer_ns.push_back(peer_seconds / static_cast<double>(operations) * 1e9);
    }
    const double ratio = median(ratios);
    std::printf("%-48s %6.2f  limit %.2f  %s   (%.0f ns, peer %.0f ns)\n", name.c_str(), ratio, limit,
                ratio >= limit ? "ok" : "MISSED", median(ours_ns), median(peer_ns));
    std::fflush(stdout);
}

// A row whose figure is the time of one operation, which must stay below the limit. Short turns: the median is free of
// other processes' time.
inline void time_each(const std::string &name, double limit_microseconds, const std::function<void()> &operation) {
    constexpr int Turns = 400, Operations = 500;
    std::vector<double> times;
    for (int turn = 0; turn < Turns; ++turn) {
        const double seconds = seconds_of([&] {
            for (int i = 0; i < Operations; ++i) operation();
        });
        times.push_back(seconds / Operations * 1e6);
    }
    const double time = median(times);
    std::printf("%-48s %6.2f  limit %.2f  %s   (microseconds)\n", name.c_str(), time, limit_microseconds,
                time < limit_microseconds ? "ok" : "MISSED");
    std::fflush(stdout);
}

inline std::string key_of(std::size_t number) {
    char key[24];
    std::snprintf(key, sizeof key, "K%09zu", number);
    return key;
}

inline std::vector<std::string> random_keys(std::size_t count, std::size_t among) {
    std::mt19937 random(42);
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < count; ++i) keys.push_back(key_of(random() % among));
    return keys;
}

// --- LMDB ------------------------------------------------------------------------------------------------------------

class RawFile {
  public:
    RawFile(const std::string &path, unsigned flags) {
        check(mdb_env_create(&env));
        check(mdb_env_set_mapsize(env, flags & MDB_WRITEMAP ? 512UL << 20 : 4UL << 30));
        check(mdb_env_open(env, path.c_str(), MDB_NOSUBDIR | MDB_NOTLS | flags, 0666));
        MDB_txn *txn;
        check(mdb_txn_begin(env, nullptr, 0, &txn));
        check(mdb_dbi_open(txn, nullptr, 0, &dbi));
        check(mdb_txn_commit(txn));
    }
    ~RawFile() {
        if (reading_) mdb_txn_abort(reading_);
        mdb_env_close(env);
    }
    RawFile(const RawFile &) = delete;
    RawFile &operator=(const RawFile &) = delete;

    void fill(std::size_t count) {
        const std::string record(RecordBytes, 'r');
        for (std::size_t at = 0; at < count;) {
            MDB_txn *txn;
            check(mdb_txn_begin(env, nullptr, 0, &txn));
            for (const std::size_t end = std::min(count, at + 10000); at < end; ++at) put(txn, key_of(at), record);
            check(mdb_txn_commit(txn));
        }
    }
    void put_and_commit(const std::string &key, const std::string &record) {
        MDB_txn *txn;
        check(mdb_txn_begin(env, nullptr, 0, &txn));
        put(txn, key, record);
        check(mdb_txn_commit(txn));
    }
    // One commit for each `batch` records, in the order given.
    void put_in_batches(const std::vector<std::string> &keys, const std::string &record, std::size_t batch) {
        for (std::size_t at = 0; at < keys.size();) {
            MDB_txn *txn;
            check(mdb_txn_begin(env, nullptr, 0, &txn));
            for (const std::size_t end = std::min(keys.size(), at + batch); at < end; ++at) put(txn, keys[at], record);
            check(mdb_txn_commit(txn));
        }
    }
    // Renew, get and one copy.
    void read(const std::string &key) {
        MDB_val k{key.size(), const_cast<char *>(key.data())}, d;
        begin_reading();
        check(mdb_get(reading_, dbi, &k, &d));
        std::memcpy(record_copy_, d.mv_data, d.mv_size);
        mdb_txn_reset(reading_);
    }
    // A cursor over everything that copies key and record.
    void scan() {
        begin_reading();
        MDB_cursor *cursor;
        check(mdb_cursor_open(reading_, dbi, &cursor));
        MDB_val k, d;
        for (int rc = mdb_cursor_get(cursor, &k, &d, MDB_FIRST); rc == 0;
             rc = mdb_cursor_get(cursor, &k, &d, MDB_NEXT)) {
            std::memcpy(key_copy_, k.mv_data, k.mv_size);
            std::memcpy(record_copy_, d.mv_data, d.mv_size);
        }
        mdb_cursor_close(cursor);
        mdb_txn_reset(reading_);
    }
    // Copies everything in commits of `batch` records.
    void copy_to(RawFile &target, std::size_t batch) {
        begin_reading();
        MDB_cursor *cursor;
        MDB_txn *writing;
        check(mdb_cursor_open(reading_, dbi, &cursor));
        check(mdb_txn_begin(target.env, nullptr, 0, &writing));
        MDB_val k, d;
        std::size_t done = 0;
        for (int rc = mdb_cursor_get(cursor, &k, &d, MDB_FIRST); rc == 0;
             rc = mdb_cursor_get(cursor, &k, &d, MDB_NEXT)) {
            check(mdb_put(writing, target.dbi, &k, &d, 0));
            if (++done % batch) continue;
            check(mdb_txn_commit(writing));
            check(mdb_txn_begin(target.env, nullptr, 0, &writing));
        }
        check(mdb_txn_commit(writing));
        mdb_cursor_close(cursor);
        mdb_txn_reset(reading_);
    }

  private:
    void begin_reading() {
        if (reading_)
            check(mdb_txn_renew(reading_));
        else
            check(mdb_txn_begin(env, nullptr, MDB_RDONLY, &reading_));
    }
    void put(MDB_txn *txn, const std::string &key, const std::string &record) {
        MDB_val k{key.size(), const_cast<char *>(key.data())}, d{record.size(), const_cast<char *>(record.data())};
        check(mdb_put(txn, dbi, &k, &d, 0));
    }

    MDB_env *env = nullptr;
    MDB_dbi dbi = 0;
    MDB_txn *reading_ = nullptr;  // reset between uses
    char record_copy_[4096];
    char key_copy_[512];
};

// --- SQLite --------------------------------------------------------------------------------------------------------

// A table of keys and records, in WAL mode with synchronous=NORMAL, one update a commit.
class SqliteFile {
  public:
    SqliteFile(const std::string &path, std::size_t count) : record_(RecordBytes, 'w') {
        if (sqlite3_open(path.c_str(), &database_) != SQLITE_OK) give_up("SQLite does not open");
        run("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
            "CREATE TABLE f (k TEXT PRIMARY KEY, r BLOB) WITHOUT ROWID");
        sqlite3_prepare_v2(database_, "INSERT OR REPLACE INTO f VALUES (?, ?)", -1, &put_, nullptr);
        run("BEGIN");
        for (std::size_t i = 0; i < count; ++i) put_and_commit(key_of(i));
        run("COMMIT");
    }
    ~SqliteFile() {
        sqlite3_finalize(put_);
        sqlite3_close(database_);
    }
    SqliteFile(const SqliteFile &) = delete;
    SqliteFile &operator=(const SqliteFile &) = delete;

    void put_and_commit(const std::string &key) {
        sqlite3_bind_text(put_, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        sqlite3_bind_blob(put_, 2, record_.data(), static_cast<int>(record_.size()), SQLITE_STATIC);
        if (sqlite3_step(put_) != SQLITE_DONE) give_up(sqlite3_errmsg(database_));
        sqlite3_reset(put_);
    }

  private:
    void run(const char *sql) {
        char *fault = nullptr;
        if (sqlite3_exec(database_, sql, nullptr, nullptr, &fault) != SQLITE_OK) give_up(fault);
    }

    sqlite3 *database_ = nullptr;
    sqlite3_stmt *put_ = nullptr;
    std::string record_;
};

}  // namespace velda::bench
