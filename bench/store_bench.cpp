// store_bench: the hashed driver against its peers, each row a figure measured in one run.
//
//   store_bench [FILTER] [RECORDS]
//
// runs the rows whose name holds FILTER, over a file of RECORDS records (1,000,000) of 200 bytes.
#include <memory>
#include <vector>

#include "bench/raw_lmdb.h"
#include "runtime/store/driver.h"

namespace velda::bench {
namespace {

using store::Durability;
using store::OpenFile;
using store::TransferMode;

template <class T>
T take(Result<T> result) {
    if (!result) give_up(result.error().message);
    return std::move(*result);
}
void take(Result<void> result) {
    if (!result) give_up(result.error().message);
}

class Buffer : public store::RecordBuffer {
  public:
    char *prepare(std::size_t size_bytes) override {
        if (size_bytes > bytes_.size()) bytes_.resize(size_bytes);
        return bytes_.data();
    }

  private:
    std::vector<char> bytes_;
};

std::shared_ptr<OpenFile> new_file(const std::string &path, Durability durability) {
    take(store::create_file(path, "HL", {.durability = durability, .options = {}}));
    return take(store::open_file(path));
}

void fill(OpenFile &file, std::size_t count) {
    const std::string record(RecordBytes, 'r');
    for (std::size_t at = 0; at < count;) {
        std::vector<std::string> keys;
        std::vector<store::Update> updates;
        for (const std::size_t end = std::min(count, at + 10000); at < end; ++at) keys.push_back(key_of(at));
        for (const auto &key : keys) updates.push_back({key, record});
        take(file.apply(updates, TransferMode::Default));
    }
}

void read(OpenFile &file, std::string_view key, Buffer &buffer) {
    if (!take(file.read(key, buffer, TransferMode::Default))) give_up("a record is missing");
}

void bench_reads(const Run &run) {
    if (!run.wanted("read of 200 bytes") && !run.wanted("scan")) return;
    RawFile raw(run.path("raw"), LazyFlags & ~MDB_WRITEMAP);
    raw.fill(run.record_count);
    const auto file = new_file(run.path("ours"), Durability::Lazy);
    fill(*file, run.record_count);
    take(file->sync());
    const auto keys = random_keys(400000, run.record_count);
    Buffer buffer;
    char key_copy[512], record_copy[4096];
    if (run.wanted("read of 200 bytes")) {
        compare(
            "read of 200 bytes, of raw LMDB", 0.60, keys.size(),
            [&] {
                for (const auto &key : keys) raw.read(key);
            },
            [&] {
                for (const auto &key : keys) read(*file, key, buffer);
            });
    }
    if (!run.wanted("scan")) return;
    const auto peer = [&] { raw.scan(); };
    compare("scan: keys and reads, of raw LMDB cursor", 0.40, run.record_count, peer, [&] {
        auto cursor = take(file->select(TransferMode::Default));
        while (auto key = take(cursor->next_key())) {
            std::memcpy(key_copy, key->data(), key->size());
            read(*file, {key_copy, key->size()}, buffer);
        }
    });
    compare("scan: items, of raw LMDB cursor", 0.40, run.record_count, peer, [&] {
        auto cursor = take(file->select(TransferMode::Default));
        while (auto item = take(cursor->next_item())) {
            std::memcpy(key_copy, item->key.data(), item->key.size());
            std::memcpy(record_copy, item->record.data(), item->record.size());
        }
    });
}

void bench_lazy_writes(const Run &run) {
    if (!run.wanted("write lazy")) return;
    constexpr std::size_t Among = 100000;
    const auto file = new_file(run.path("lazy"), Durability::Lazy);
    fill(*file, Among);
    const auto keys = random_keys(30000, Among);
    const std::string record(RecordBytes, 'w');
    const auto ours = [&] {
        for (const auto &key : keys) take(file->write(key, record, TransferMode::Default));
    };
    RawFile raw(run.path("raw-lazy"), LazyFlags);
    raw.fill(Among);
    compare(
        "write lazy, of raw LMDB", 0.60, keys.size(),
        [&] {
            for (const auto &key : keys) raw.put_and_commit(key, record);
        },
        ours);
    SqliteFile sqlite(run.path("sqlite"), Among);
    compare(
        "write lazy, of SQLite WAL synchronous=NORMAL", 5.0, keys.size(),
        [&] {
            for (const auto &key : keys) sqlite.put_and_commit(key);
        },
        ours);
}

void bench_sync_writes(const Run &run) {
    if (!run.wanted("write sync")) return;
    constexpr std::size_t Among = 10000;
    constexpr int Rounds = 15;  // short ones: the speed of a disk changes from second to second
    RawFile raw(run.path("raw-sync"), 0);
    raw.fill(Among);
    const auto file = new_file(run.path("sync"), Durability::Sync);
    fill(*file, Among);
    const auto keys = random_keys(60, Among);
    const std::string record(RecordBytes, 'w');
    compare(
        "write sync, of raw LMDB", 0.85, keys.size(),
        [&] {
            for (const auto &key : keys) raw.put_and_commit(key, record);
        },
        [&] {
            for (const auto &key : keys) take(file->write(key, record, TransferMode::Default));
        },
        Rounds);
}

void bench_open(const Run &run) {
    if (!run.wanted("open")) return;
    const auto file = new_file(run.path("open"), Durability::Sync);
    time_each("open of an open file", 2.0, [&] { take(store::open_file(run.path("open"))); });
}

// Copies everything in commits of `batch` records.
void copy(OpenFile &from, OpenFile &to, std::size_t batch) {
    const auto cursor = take(from.select(TransferMode::Default));
    std::vector<std::string> held(2 * batch);
    std::vector<store::Update> updates;
    const auto send = [&] {
        take(to.apply(updates, TransferMode::Default));
        updates.clear();
    };
    while (auto item = take(cursor->next_item())) {
        std::string &key = held[2 * updates.size()], &record = held[2 * updates.size() + 1];
        key = item->key;
        record = item->record;
        updates.push_back({key, record});
        if (updates.size() == batch) send();
    }
    send();
}

void bench_copy(const Run &run) {
    constexpr std::size_t Count = 50000, Batch = 1000;
    for (const bool lazy : {true, false}) {
        const std::string mode = lazy ? "lazy" : "sync", name = "copy in batches, " + mode + ", of raw LMDB";
        if (!run.wanted(name)) continue;
        RawFile raw_from(run.path("raw-from-" + mode), LazyFlags);
        RawFile raw_to(run.path("raw-to-" + mode), lazy ? LazyFlags : 0);
        raw_from.fill(Count);
        const auto from = new_file(run.path("from-" + mode), Durability::Lazy);
        const auto to = new_file(run.path("to-" + mode), lazy ? Durability::Lazy : Durability::Sync);
        fill(*from, Count);
        compare(
            name, 0.50, Count, [&] { raw_from.copy_to(raw_to, Batch); }, [&] { copy(*from, *to, Batch); });
    }
}

}  // namespace
}  // namespace velda::bench

int main(int count, char **words) {
    const velda::bench::Run run(count, words);
    velda::bench::bench_reads(run);
    velda::bench::bench_lazy_writes(run);
    velda::bench::bench_sync_writes(run);
    velda::bench::bench_open(run);
    velda::bench::bench_copy(run);
}
