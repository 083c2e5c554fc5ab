// journal_bench: what journalling costs. Each row is a ratio measured in one run: statements with and without a journal,
// appends against one write() for each record under a mutex that processes share, two processes against one, transactions
// against as many bytes written and synced.
//
//   journal_bench [FILTER]
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "bench/raw_lmdb.h"
#include "journal/journal.h"
#include "runtime/process/context.h"
#include "runtime/store/journalling.h"
#include "runtime/vutil.h"

namespace velda::bench {
namespace {

constexpr int PlainSet = 1, StripedSet = 2;  // of one file, of three

void require(bool happened, const char *what) {
    if (!happened) give_up(what);
}

// A journal whose current set every round empties.
class Journal {
  public:
    explicit Journal(const Run &run) : dp(velda_getdp()) {
        require(VELDALoggerGetDefinition(dp) == 0, "cannot make the configuration");
        name_file(run, PlainSet, 1);
        for (int file = 1; file <= 3; ++file) name_file(run, StripedSet, file);
        config = VediLoggerInit(dp, 1);
        empty();
    }
    void empty(int set = PlainSet) const {
        set_status(VELDA_LOGGER_INACTIVE);
        require(VELDALoggerSwapLog(dp, set) == 0, "cannot switch");
    }
    void empty_and_activate(int set = PlainSet) const {
        empty(set);
        set_status(VELDA_LOGGER_ACTIVE);
    }
    void require_records(std::size_t count) const {
        require(config->sets[0].recordCount == static_cast<std::int64_t>(count), "the journal lacks records");
    }
    void set_status(std::uint32_t status) const { config->status = status; }

    DP *const dp;
    VELDALoggerConfig *config;

  private:
    void name_file(const Run &run, int set, int file) const {
        const VAR path(run.path("log" + std::to_string(set) + "-" + std::to_string(file)));
        require(VELDALoggerSetFile(dp, set, file, 1, &path) == 0, "cannot name a file");
    }
};

void make_lazy_file(DP *dp, const std::string &path) {
    const VAR operands("DATA\xFE" + path +
                       "\xFE"
                       "DURABILITY=LAZY");
    require(velda_create_file(dp, &operands, nullptr) == 1, "cannot make a file");
}

VAR opened(DP *dp, const std::string &path) {
    const VAR name(path);
    VAR file;
    require(VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, &file, nullptr) == 1, "cannot open a file");
    return file;
}

void bench_statements(const Run &run, const Journal &journal) {
    if (!run.wanted("WRITE lazy")) return;
    constexpr std::size_t Among = 100000;
    DP *const dp = journal.dp;
    make_lazy_file(dp, run.path("lazy"));
    const VAR file = opened(dp, run.path("lazy"));
    std::vector<VAR> keys;
    for (const auto &key : random_keys(100000, Among)) keys.emplace_back(key);
    const VAR record(std::string(RecordBytes, 'w'));
    const auto write_all = [&] {
        for (const VAR &key : keys)
            require(VLibFNEWWRITE_IIBBBIB(dp, 0, &file, &record, &key, 0, nullptr) == 1, "a write failed");
    };
    write_all();
    compare(
        "WRITE lazy of 200 bytes, journalled", 0.70, keys.size(),
        [&] {
            journal.set_status(VELDA_LOGGER_INACTIVE);
            write_all();
        },
        [&] {
            journal.set_status(VELDA_LOGGER_ACTIVE);
            write_all();
        },
        9, [&] { journal.empty(); });
    journal.require_records(keys.size());
}

// Records of 300 bytes: header, strings, lengths and trailer take the rest.
constexpr std::size_t JournalRecordBytes = 300;

void append(std::size_t count) {
    const std::string path = "/some/file", key = "K000000001";
    const std::string data(JournalRecordBytes - 48 - 8 - 12 - (path.size() + key.size() + 8), 'd');
    const store::Update update{key, data};
    for (std::size_t n = 0; n < count; ++n)
        require(store::journal_updates(path, {&update, 1}, store::TransferMode::Default).ok(), "an append failed");
}

class SharedMutex {
  public:
    SharedMutex()
        : mutex_(static_cast<pthread_mutex_t *>(
              mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        pthread_mutex_init(mutex_, &attributes);
    }
    ~SharedMutex() { munmap(mutex_, 4096); }
    SharedMutex(const SharedMutex &) = delete;
    SharedMutex &operator=(const SharedMutex &) = delete;
    void lock() { pthread_mutex_lock(mutex_); }
    void unlock() { pthread_mutex_unlock(mutex_); }

  private:
    pthread_mutex_t *mutex_;
};

void bench_append(const Run &run, const Journal &journal) {
    if (!run.wanted("append of 300 bytes")) return;
    constexpr std::size_t Records = 200000;
    SharedMutex mutex;
    const std::array<char, JournalRecordBytes> record{};
    compare(
        "append of 300 bytes, of write() under a mutex", 0.5, Records,
        [&] {
            const int file = open(run.path("plain").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
            for (std::size_t n = 0; n < Records; ++n) {
                const std::lock_guard guard(mutex);
                require(write(file, record.data(), record.size()) == static_cast<ssize_t>(record.size()), "write()");
            }
            close(file);
        },
        [&] { append(Records); }, 7, [&] { journal.empty_and_activate(); });
    journal.require_records(Records);
}

// The work done by so many processes at once, each an equal part.
void in_processes(int processes, std::size_t count, const std::function<void(std::size_t)> &work) {
    for (int n = 0; n < processes; ++n) {
        if (fork() != 0) continue;
        work(count / static_cast<std::size_t>(processes));
        _exit(0);
    }
    for (int n = 0; n < processes; ++n) {
        int status = 0;
        require(wait(&status) > 0 && status == 0, "a process failed");
    }
}

void bench_two_processes(const Run &run, const Journal &journal) {
    if (!run.wanted("append by two processes")) return;
    constexpr std::size_t Records = 400000;
    const auto prepare = [&] { journal.empty_and_activate(); };
    compare(
        "append by two processes, of one", 0.8, Records, [&] { in_processes(1, Records, append); },
        [&] { in_processes(2, Records, append); }, 7, prepare, prepare);
    journal.require_records(Records);
}

// Each is one update, and its end waits for the disk.
void make_transactions(const std::string &path, std::size_t count) {
    DP *const dp = velda_new_context();
    const CurrentContext current(dp);
    const VAR file = opened(dp, path), record(std::string(RecordBytes, 't'));
    for (std::size_t n = 0; n < count; ++n) {
        const VAR key(key_of(n));
        require(velda_transaction_begin(dp, nullptr) == 1, "a transaction does not begin");
        require(VLibFNEWWRITE_IIBBBIB(dp, 0, &file, &record, &key, 0, nullptr) == 1, "a write failed");
        require(velda_transaction_commit(dp, nullptr) == 1, "a transaction does not end");
    }
}

// The same records without an update of a file.
void journal_transactions(DP *dp, std::size_t count) {
    for (std::size_t n = 0; n < count; ++n) {
        require(velda_logger_transaction_start(dp, nullptr, 0) == 0, "a transaction does not start");
        append(1);
        require(velda_logger_transaction_end(dp, nullptr) == 0, "a transaction does not end");
    }
}

// As many bytes, behind those before.
void write_and_sync(const std::string &path, std::size_t count) {
    const std::array<char, 460> bytes{};
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    for (std::size_t n = 0; n < count; ++n) {
        const auto at = static_cast<off_t>(n * bytes.size());
        require(pwrite(file, bytes.data(), bytes.size(), at) == static_cast<ssize_t>(bytes.size()), "pwrite()");
        require(fdatasync(file) == 0, "fdatasync()");
    }
    close(file);
}

// Syncs that take milliseconds are shared by several processes to twice the rate of one. Where a sync takes a tenth of
// one, waking who waits for it costs as much, and the second row may miss its limit.
void bench_transactions(const Run &run, const Journal &journal) {
    if (!run.wanted("transactions on disk")) return;
    constexpr std::size_t Transactions = 200;
    constexpr int Rounds = 5;
    const auto prepare = [&] {
        journal.empty_and_activate(StripedSet);
        journal.config->syncTransactions = 1;
        journal_transactions(journal.dp, 1);
    };
    compare(
        "transactions on disk, of pwrite() and fdatasync()", 0.70, Transactions,
        [&] { write_and_sync(run.path("plain"), Transactions); },
        [&] { journal_transactions(journal.dp, Transactions); }, Rounds, prepare);
    const std::string path = run.path("transactions");
    make_lazy_file(journal.dp, path);
    const auto by = [&](int processes) {
        in_processes(processes, Transactions, [&](std::size_t count) { make_transactions(path, count); });
    };
    compare(
        "transactions on disk by four processes, of one", 1.5, Transactions, [&] { by(1); }, [&] { by(4); }, Rounds,
        prepare, prepare);
}

}  // namespace
}  // namespace velda::bench

int main(int count, char **words) {
    const velda::bench::Run run(count, words);
    setenv("VELDAGLOBALDIR", run.path("global").c_str(), 1);
    const velda::bench::Journal journal(run);
    velda::bench::bench_statements(run, journal);
    velda::bench::bench_append(run, journal);
    velda::bench::bench_two_processes(run, journal);
    velda::bench::bench_transactions(run, journal);
}
