// transfer_bench: journal records sent from one process to another over loopback TCP, against the connection itself and
// against the replay of the same records without one.
//
//   transfer_bench [FILTER] [RECORDS]
//
// runs the rows whose name holds FILTER, over a log set of RECORDS records (1,000,000) of 200 bytes under random keys.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>

#include "bench/raw_lmdb.h"
#include "journal/duplicator/dup_log.h"
#include "journal/journal.h"
#include "runtime/store/driver.h"
#include "runtime/vutil.h"
#include "tests/support/journal_builder.h"

namespace velda::bench {
namespace {

constexpr std::int64_t SetTime = 1700000000;
constexpr std::size_t BlockBytes = 4096;

// --- processes ---

// Runs the duplicator in a process of its own; what it says goes to a file.
pid_t start_duplicator(const Run &run, const std::string &words, const std::string &name) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child != 0) return child;
    const int log = open(run.path(name + ".log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    dup2(log, STDERR_FILENO);
    const int code = velda_run(
        velda_getdp(), ("vlogdup " + words).c_str(), [](DP *dp, void *) { DupLog(dp); }, nullptr);
    _exit(code);
}

void await_success(const Run &run, pid_t child, const std::string &name) {
    int status = 0;
    waitpid(child, &status, 0);
    if (status == 0) return;
    std::ifstream log(run.path(name + ".log"));
    std::string line;
    for (int n = 0; n < 10 && std::getline(log, line); ++n) std::fprintf(stderr, "%s\n", line.c_str());
    give_up("the " + name + " ended with status " + std::to_string(status));
}

int listening_socket(int &port) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        give_up("no port");
    port = ntohs(address.sin_port);
    return listener;
}

int free_port() {
    int port = 0;
    close(listening_socket(port));
    return port;
}

// A receiver is there when something listens on its port.
void await_listener(int port) {
    char wanted[16];
    std::snprintf(wanted, sizeof wanted, ":%04X ", static_cast<unsigned>(port));
    for (int tries = 0; tries < 5000; ++tries) {
        std::ifstream table("/proc/net/tcp");
        for (std::string line; std::getline(table, line);)
            if (line.find(wanted) < 20 && line.find(" 0A ") != std::string::npos) return;
        usleep(1000);
    }
    give_up("the receiver never listened");
}

// --- the peer: the connection itself ---

void read_all(int connection, std::size_t blocks) {
    char block[BlockBytes];
    for (std::size_t n = 0; n < blocks; ++n)
        for (std::size_t done = 0; done < BlockBytes;) {
            const ssize_t got = read(connection, block + done, BlockBytes - done);
            if (got <= 0) give_up("the connection broke");
            done += static_cast<std::size_t>(got);
        }
}

void send_raw(std::size_t blocks) {
    int port = 0;
    const int listener = listening_socket(port);
    const pid_t child = fork();
    if (child == 0) {
        read_all(accept(listener, nullptr, nullptr), blocks);
        _exit(0);
    }
    const int connection = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(connection, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) give_up("no connection");
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::string block(BlockBytes, 'b');
    for (std::size_t n = 0; n < blocks; ++n)
        if (write(connection, block.data(), BlockBytes) != static_cast<ssize_t>(BlockBytes)) give_up("a write failed");
    waitpid(child, nullptr, 0);
    close(connection);
    close(listener);
}

// --- the transfer ---

class LogSet {
  public:
    LogSet(const Run &run, DP *dp, const std::string &file, const std::vector<std::string> &keys)
        : set_({run.path("set")}, SetTime) {
        const std::string data(RecordBytes, 'w');
        for (const std::string &key : keys) set_.add(test::write_record(file, key, data));
        set_.write();
        VELDALoggerGetDefinition(dp);
        VELDALoggerConfig &config = *VediLoggerInit(dp, 1);
        set_.configure(config);
        config.currentSet = 1;
        blocks_ = set_.blocks().size();
        set_.blocks().clear();
    }
    std::size_t blocks() const { return blocks_; }

  private:
    test::SetBuilder set_;
    std::size_t blocks_;
};

// From the set to a receiver with that output.
void transfer(const Run &run, const std::string &options, const std::string &output) {
    const int port = free_port();
    const std::string address = "set=socket hostname=127.0.0.1 port=" + std::to_string(port);
    const pid_t receiver = start_duplicator(run, options + " INPUT " + address + " OUTPUT " + output, "receiver");
    await_listener(port);
    const pid_t sender = start_duplicator(run, "INPUT set=1 terminate=eos OUTPUT " + address, "sender");
    await_success(run, receiver, "receiver");
    await_success(run, sender, "sender");
}

void replay(const Run &run) {
    await_success(run, start_duplicator(run, "-x INPUT set=1 terminate=eos OUTPUT set=database", "replay"), "replay");
}

void make_lazy_file(const std::string &path) {
    if (auto gone = store::destroy_file(path); !gone && gone.error().number != 2) give_up(gone.error().message);
    if (auto made = store::create_file(path, "HL", {.durability = store::Durability::Lazy, .options = {}}); !made)
        give_up(made.error().message);
}

void bench_null(const Run &run, const LogSet &set) {
    if (!run.wanted("transfer to null")) return;
    compare(
        "transfer to null, of loopback TCP", 0.50, run.record_count, [&] { send_raw(set.blocks()); },
        [&] { transfer(run, "", "set=null"); });
}

// Gives the records a second.
double bench_database(const Run &run, const std::string &file) {
    make_lazy_file(file);
    replay(run);  // all of them find the same file: each record is there
    std::vector<double> seconds;
    compare(
        "transfer to database with -x, of local replay", 0.80, run.record_count, [&] { replay(run); },
        [&] { seconds.push_back(seconds_of([&] { transfer(run, "-x", "set=database"); })); });
    return static_cast<double>(run.record_count) / median(seconds);
}

// --- the lag ---

constexpr int LoadSeconds = 6, IdleMilliseconds = 1500;

// Records that a writer has written so far, and when: shared with it.
struct Written {
    std::atomic<std::uint64_t> count;
    std::atomic<bool> is_done;
    std::atomic<double> when[LoadSeconds * 1000000];
};

double now_seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

template <class T>
T *shared_memory(int file) {
    const int flags = file < 0 ? MAP_SHARED | MAP_ANONYMOUS : MAP_SHARED;
    void *const memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, flags, file, 0);
    if (memory == MAP_FAILED) give_up("no memory to share");
    return static_cast<T *>(memory);
}

// Writes records of a journalled file at a steady rate.
[[noreturn]] void write_steadily(const std::string &path, double rate, Written &written) {
    DP *const dp = velda_getdp();
    VediControlBlock file;
    if (VediOpen(dp, &file, path.c_str(), 0, 0) != 0) give_up("the file of the load cannot be opened");
    const std::string data(RecordBytes, 'w');
    const double start = now_seconds();
    for (double now = start; now < start + LoadSeconds; now = now_seconds()) {
        const auto due = static_cast<std::uint64_t>((now - start) * rate);
        for (std::uint64_t n = written.count; n < due && n < std::size(written.when); ++n) {
            const std::string key = key_of(n % 100000);
            written.when[n] = now_seconds();
            if (VediWriteRecord(dp, &file, VEDI_BINARY, key.data(), static_cast<uint32_t>(key.size()), data.data(),
                                RecordBytes, 0) != 0)
                give_up("a write of the load failed");
            written.count = n + 1;
        }
        usleep(1000);
    }
    VediClose(dp, &file, 0);
    written.is_done = true;
    _exit(0);
}

void start_journal(const Run &run, DP *dp) {
    const VAR path(run.path("journal"));
    if (VELDALoggerSetFile(dp, 2, 1, 1, &path) != 0 || VELDALoggerSwapLog(dp, 2) != 0 ||
        VELDALoggerChangeStatus(dp, VELDA_LOGGER_ACTIVE) != 0)
        give_up("the journal cannot be started");
}

// The receiver's system: it has a journal configuration of its own, which is mapped here to watch it.
class Replica {
  public:
    explicit Replica(const Run &run) : directory(run.path("replica-system")) {
        std::filesystem::create_directory(directory);
        const pid_t child = fork();
        if (child == 0) {
            setenv("VELDAGLOBALDIR", directory.c_str(), 1);
            _exit(VELDALoggerGetDefinition(velda_getdp()));
        }
        int status = 0;
        waitpid(child, &status, 0);
        const int file = open((directory + "/config/vediLoggerConfig").c_str(), O_RDWR);
        if (status != 0 || file < 0) give_up("the receiver's system cannot be made");
        config_ = shared_memory<VELDALoggerConfig>(file);
        close(file);
    }
    std::uint64_t applied() const { return std::atomic_ref<std::uint64_t>(config_->dupSlots[0].outputRecords).load(); }

    const std::string directory;

  private:
    VELDALoggerConfig *config_;
};

// How long the first record that the replica lacks has been waiting.
double lag_seconds(const Written &written, const Replica &replica) {
    const std::uint64_t applied = replica.applied(), count = written.count;
    return applied >= count ? 0 : now_seconds() - written.when[applied];
}

// The greatest lag while the writer writes.
double watch_lag(const Written &written, const Replica &replica) {
    double greatest = 0;
    while (!written.is_done) {
        usleep(20000);
        greatest = std::max(greatest, lag_seconds(written, replica));
    }
    return greatest;
}

void show_lag(const char *name, double seconds, bool is_met, double rate) {
    std::printf("%-48s %6.3f  limit %s  %s   (seconds, at %.0f records a second)\n", name, seconds,
                rate > 0 ? "1" : "0", is_met ? "ok" : "MISSED", rate);
}

void bench_lag(const Run &run, DP *dp, double rate) {
    const Replica replica(run);
    const std::string load = run.path("load"), copy = run.path("copy");
    for (const std::string &directory : {load, copy}) {
        std::filesystem::create_directory(directory);
        make_lazy_file(directory + "/FILE");
    }
    start_journal(run, dp);
    Written &written = *shared_memory<Written>(-1);
    const int port = free_port();
    const std::string address = "set=socket hostname=127.0.0.1 port=" + std::to_string(port);
    setenv("VELDAGLOBALDIR", replica.directory.c_str(), 1);
    const pid_t receiver =
        start_duplicator(run, "-x INPUT " + address + " OUTPUT set=database rename=" + load + "," + copy, "receiver");
    setenv("VELDAGLOBALDIR", run.folder.c_str(), 1);
    await_listener(port);
    const pid_t sender = start_duplicator(run, "INPUT set=current terminate=wait retry=1 OUTPUT " + address, "sender");
    const pid_t writer = fork();
    if (writer == 0) write_steadily(load + "/FILE", rate, written);
    const double greatest = watch_lag(written, replica);
    usleep(IdleMilliseconds * 1000);
    const double idle = lag_seconds(written, replica);
    show_lag("lag under a steady load", greatest, greatest < 1, static_cast<double>(written.count) / LoadSeconds);
    show_lag("lag when idle", idle, idle == 0, 0);
    for (const pid_t child : {sender, receiver, writer}) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

}  // namespace
}  // namespace velda::bench

int main(int count, char **words) {
    using namespace velda::bench;
    const Run run(count, words);
    setenv("VELDAGLOBALDIR", run.folder.c_str(), 1);
    if (getenv("VDEBUG")) std::fprintf(stderr, "%d\n", getpid());
    setenv("VBCRELEASEDIR", VELDA_SOURCE_DIR "/share", 1);
    DP *const dp = velda_getdp();
    const std::string file = run.path("replica");
    const LogSet set(run, dp, file, random_keys(run.record_count, run.record_count));
    bench_null(run, set);
    if (!run.wanted("transfer to database") && !run.wanted("lag")) return 0;
    const double rate = bench_database(run, file);
    bench_lag(run, dp, rate / 2);
}
