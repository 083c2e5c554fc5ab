// A sender and a receiver as processes, with a connection between them that a proxy cuts and processes that are killed:
// after a restart from the milestone file the replica is the primary's.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <map>
#include <optional>
#include <thread>

#include "journal/duplicator/dup_log.h"
#include "journal/duplicator/duplicator.h"
#include "journal/select_parser.h"
#include "runtime/store/driver.h"
#include "tests/journal/fixture.h"
#include "tests/support/journal_builder.h"
#include "tests/support/seed.h"
#include "tests/support/terminal_program.h"

namespace velda::test {
namespace {

constexpr std::int64_t FirstTime = 1'700'000'000;
constexpr int BlockBytes = 512;

using Contents = std::map<std::string, std::string>;

// --- the proxy ---

int listening_socket(int &port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        close(listener);
        return -1;
    }
    port = ntohs(address.sin_port);
    return listener;
}

// A port for a receiver, of those that the system does not give out by itself.
int receiver_port(std::mt19937_64 &random) {
    for (;;) {
        int port = 20000 + static_cast<int>(random() % 10000);
        const int listener = listening_socket(port);
        if (listener < 0) continue;
        close(listener);
        return port;
    }
}

// Where a connection is cut: after so many bytes in a direction. None: never.
struct Cut {
    std::optional<std::size_t> forward, backward;
};

// Carries bytes both ways between the sender, which connects to `port`, and the receiver.
class Proxy {
  public:
    Proxy(int receiver_port, Cut cut) : receiver_port_(receiver_port), cut_(cut) { listener_ = listening_socket(port); }
    void start() {
        thread_ = std::thread([this] { carry(); });
    }
    // For a forked process: a connection that waits here ends with the proxy's own listener.
    void close_listener() const { close(listener_); }
    void stop() {
        is_stopped_ = true;
        if (thread_.joinable()) thread_.join();
    }

    int port = 0;
    std::atomic<std::size_t> forwarded{0}, returned{0};
    std::atomic<bool> has_sender{true}, has_receiver{true};  // their processes live

  private:
    int accept_sender() const {
        for (bool may_come = true; may_come && !is_stopped_;) {
            may_come = has_sender;
            pollfd waiting{listener_, POLLIN, 0};
            if (poll(&waiting, 1, 5) == 1) return accept(listener_, nullptr, nullptr);
        }
        return -1;
    }
    int connect_receiver() const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(receiver_port_));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        while (!is_stopped_ && has_receiver) {
            const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) return descriptor;
            close(descriptor);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return -1;
    }
    // Moves what is there. False at the end of the stream or at the cut.
    static bool move(int from, int to, std::atomic<std::size_t> &moved, const std::optional<std::size_t> &limit) {
        char buffer[1500];
        const std::size_t most = limit ? std::min(sizeof buffer, *limit - moved) : sizeof buffer;
        const ssize_t got = most == 0 ? 0 : recv(from, buffer, most, 0);
        if (got <= 0) return false;
        for (ssize_t done = 0; done < got;) {
            const ssize_t sent = send(to, buffer + done, static_cast<std::size_t>(got - done), MSG_NOSIGNAL);
            if (sent <= 0) return false;
            done += sent;
        }
        moved += static_cast<std::size_t>(got);
        return !limit || moved < *limit;
    }
    void carry() {
        const int receiver = connect_receiver();
        const int sender = receiver < 0 ? -1 : accept_sender();
        bool sends = true, answers = true;
        while (!is_stopped_ && answers && sender >= 0) {
            pollfd ends[2] = {{sends ? sender : -1, POLLIN, 0}, {receiver, POLLIN, 0}};
            if (poll(ends, 2, 5) <= 0) continue;
            if (ends[0].revents && !move(sender, receiver, forwarded, cut_.forward)) {
                if (cut_.forward && forwarded >= *cut_.forward) break;
                sends = false;
                shutdown(receiver, SHUT_WR);
            }
            if (ends[1].revents && !move(receiver, sender, returned, cut_.backward)) answers = false;
        }
        for (const int descriptor : {sender, receiver, listener_})
            if (descriptor >= 0) close(descriptor);
    }

    int receiver_port_;
    Cut cut_;
    int listener_ = -1;
    std::atomic<bool> is_stopped_{false};
    std::thread thread_;
};

// --- primary and replica ---

// What the journal holds and what files it must lead to.
struct Primary {
    std::vector<BuiltRecord> records;
    Contents contents;  // of the file at the end
    // The number that each key of the file has at least when everything before a time has been applied.
    std::vector<std::pair<std::int64_t, std::pair<std::string, int>>> steps;
};

class TransferFaults : public LoggerTest {
  protected:
    TransferFaults() : random(seeded_random()) {
        // The environment is the children's too.
        std::filesystem::create_directory(system_ / "primary");
        std::filesystem::create_directory(system_ / "replica");
        make_primary();
    }

    ~TransferFaults() override {
        if (!HasFailure()) return;
        constexpr std::size_t Shown = 1500;
        for (const char *const name : {"sender.log", "receiver.log"}) {
            const std::string log = content(system_ / name);
            ADD_FAILURE() << name << ":\n" << log.substr(std::max(log.size(), Shown) - Shown);
        }
    }

    std::string primary_file() const { return system_ / "primary/FILE"; }
    std::string replica_file() const { return system_ / "replica/FILE"; }
    std::string milestone_file() const { return system_ / "milestone"; }

    void add(BuiltRecord record, std::uint32_t pid, bool in_transaction = false) {
        record.pid = pid;
        record.flags |= in_transaction ? 1 : 0;
        record.time = time_;
        primary.records.push_back(std::move(record));
    }
    void add_update(std::uint32_t pid, bool in_transaction, const std::string &key, int number) {
        add(write_record(primary_file(), key, std::to_string(number)), pid, in_transaction);
    }
    void applied(const std::string &key, int number) {
        primary.contents[key] = std::to_string(number);
        primary.steps.push_back({time_, {key, number}});
    }

    // Updates of several processes, single ones and in transactions, some of which are aborted or never end. All keys
    // of a transaction get one number; a number is higher than those before.
    void make_primary() {
        struct Open {
            int number = 0, left = 0;
        };
        std::map<std::uint32_t, Open> open;
        for (int number = 1; number <= 260; ++number) {
            if (random() % 4 == 0) ++time_;
            const std::uint32_t pid = 100 + static_cast<std::uint32_t>(random() % 4);
            Open &transaction = open[pid];
            if (transaction.number != 0 && transaction.left > 0) {
                --transaction.left;
                add_update(pid, true, "t" + std::to_string(pid) + "." + std::to_string(transaction.left),
                           transaction.number);
            } else if (transaction.number != 0) {
                const bool commits = random() % 4 != 0;
                add(transaction_record(commits ? TranEndType : TranAbortType), pid);
                for (int n = 0; commits && n < 3; ++n)
                    applied("t" + std::to_string(pid) + "." + std::to_string(n), transaction.number);
                transaction = {};
            } else if (random() % 3 == 0) {
                transaction = {number, 3};
                add(transaction_record(TranStartType), pid);
            } else if (random() % 12 == 0) {
                add(delete_record(primary_file(), "d"), pid);
                primary.contents.erase("d");
            } else {
                const bool is_deletable = random() % 8 == 0;
                const std::string key = is_deletable ? "d" : "k" + std::to_string(random() % 20);
                add_update(pid, false, key, number);
                primary.contents[key] = std::to_string(number);
                if (!is_deletable) primary.steps.push_back({time_, {key, number}});
            }
        }
        SetBuilder set({system_ / "set.a", system_ / "set.b"}, FirstTime);
        for (const BuiltRecord &record : primary.records) set.add(record);
        set.write();
        VELDALoggerConfig &config = defined();
        set.configure(config);
        config.currentSet = 1;
    }

    void make_replica() {
        if (std::filesystem::exists(replica_file())) {
            ASSERT_TRUE(store::destroy_file(replica_file()).ok());
        }
        ASSERT_TRUE(
            store::create_file(replica_file(), "HL", {.durability = store::Durability::Lazy, .options = {}}).ok());
        std::filesystem::remove(milestone_file());
    }

    // Read by another process: this one keeps no file open over a fork.
    Contents replica() { return contents_of(replica_file()); }
    static Contents contents_of(const std::string &path) {
        const auto ending = run_on_pipes("", [&](DP *session) {
            VediControlBlock file;
            if (VediOpen(session, &file, path.c_str(), 0, 0) != 0) return;
            VediSelection *selection = nullptr;
            VediSelect(session, &file, &selection);
            const char *key = nullptr;
            std::uint32_t key_length = 0;
            while (VediReadnext(session, &file, selection, &key, &key_length) == 0) {
                const std::string name(key, key_length);
                char *buffer = nullptr;
                std::uint32_t room = 0, size = 0;
                VediReadRecord(session, &file, VEDI_BINARY, name.data(), key_length, &buffer, &room, &size);
                VELDAprintf(session, "%s=%.*s\n", name.c_str(), static_cast<int>(size), buffer);
                VELDAfree(session, buffer, "test", __LINE__);
            }
            VediSelectEnd(session, &file, selection);
            VediClose(session, &file, 0);
        });
        Contents contents;
        std::istringstream lines(ending.output);
        for (std::string line; std::getline(lines, line);)
            contents[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
        return contents;
    }

    // Starts a duplicator as a process. What it reports goes to a file.
    pid_t start(const Proxy &proxy, const std::string &words, const std::string &name) {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child != 0) return child;
        proxy.close_listener();
        // The receiver's system is another one where both have a journal: it must not send on what it has received.
        if (name == "receiver.log" && !receiver_system_.empty()) setenv("VELDAGLOBALDIR", receiver_system_.c_str(), 1);
        const int log = open((system_ / name).c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
        dup2(log, STDERR_FILENO);
        journal::milestone_seconds = 0;
        const int code = velda_run(
            velda_getdp(), ("vlogdup " + words).c_str(), [](DP *session, void *) { DupLog(session); }, nullptr);
        _exit(code);
    }

    // What a run of both does to itself.
    struct Fault {
        Cut cut;
        std::optional<int> sender_dies_at, receiver_dies_at;  // percent of the stream's bytes
    };

    // One run of sender and receiver. Gives the sender's exit code.
    int transfer(const Fault &fault, bool is_exclusive, bool from_milestone) {
        const int port = receiver_port(random);
        Proxy proxy(port, fault.cut);
        const std::string receiving =
            "INPUT set=socket milestone=yes blocksize=512 hostname=127.0.0.1 port=" + std::to_string(port) +
            " OUTPUT set=database rename=" + (system_ / "primary") + "," + (system_ / "replica");
        const std::string sending =
            "INPUT set=current terminate=eos " + (from_milestone ? "start=" + milestone_file() : std::string()) +
            " OUTPUT set=socket blocksize=512 hostname=127.0.0.1 port=" + std::to_string(proxy.port) +
            " milestone=" + milestone_file();
        const pid_t receiver = start(proxy, (is_exclusive ? "-x -m500 " : "-m500 ") + receiving, "receiver.log");
        const pid_t sender = start(proxy, "-m500 " + sending, "sender.log");
        proxy.start();
        const auto reached = [&](const std::optional<int> &percent) {
            return percent && proxy.forwarded * 100 >= stream_bytes_ * static_cast<std::size_t>(*percent);
        };
        int sender_status = -1, receiver_status = -1;
        bool sender_lives = true, receiver_lives = true;
        for (const auto end = std::chrono::steady_clock::now() + PatienceOfTests; sender_lives || receiver_lives;) {
            if (sender_lives && reached(fault.sender_dies_at)) kill(sender, SIGKILL);
            if (receiver_lives && reached(fault.receiver_dies_at)) kill(receiver, SIGKILL);
            if (sender_lives && waitpid(sender, &sender_status, WNOHANG) == sender) sender_lives = false;
            if (receiver_lives && waitpid(receiver, &receiver_status, WNOHANG) == receiver) receiver_lives = false;
            proxy.has_sender = sender_lives;
            proxy.has_receiver = receiver_lives;
            if (std::chrono::steady_clock::now() > end) {
                ADD_FAILURE() << "the " << (sender_lives ? "sender" : "receiver") << " does not end";
                kill(sender, SIGKILL);
                kill(receiver, SIGKILL);
            }
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
        stream_bytes_ = std::max(stream_bytes_, proxy.forwarded.load());
        returned_bytes_ = std::max(returned_bytes_, proxy.returned.load());
        proxy.stop();
        return code_of(sender_status);
    }

    std::int64_t milestone() { return journal::LoggerFileStamp(dp, milestone_file(), "Receiver Milestone", "(UTC"); }

    // What the receiver has acknowledged is in the replica, or something later of the same key.
    void expect_acknowledged(const Contents &contents) {
        const std::int64_t time = milestone();
        for (const auto &[applied_time, step] : primary.steps) {
            if (applied_time >= time) break;
            const auto found = contents.find(step.first);
            ASSERT_NE(found, contents.end()) << step.first << " was acknowledged until " << time;
            ASSERT_GE(std::stoi(found->second), step.second) << step.first << " was acknowledged until " << time;
        }
    }
    static void expect_whole_transactions(const Contents &contents) {
        for (int pid = 100; pid < 104; ++pid) {
            const auto number = [&](int n) {
                const auto found = contents.find("t" + std::to_string(pid) + "." + std::to_string(n));
                return found == contents.end() ? "none" : found->second;
            };
            EXPECT_EQ(number(0), number(1)) << pid;
            EXPECT_EQ(number(1), number(2)) << pid;
        }
    }

    // Breaks a transfer, looks what is there, and restarts it.
    void survive(const Fault &fault, bool is_exclusive) {
        make_replica();
        transfer(fault, is_exclusive, false);
        const Contents broken = replica();
        expect_acknowledged(broken);
        expect_whole_transactions(broken);
        const bool has_milestone = milestone() != 0;
        EXPECT_EQ(transfer({}, is_exclusive, has_milestone), 0);
        EXPECT_EQ(replica(), primary.contents);
    }

    // A transfer without a fault, for the size of its streams.
    void measure() {
        make_replica();
        ASSERT_EQ(transfer({}, false, false), 0);
        ASSERT_EQ(replica(), primary.contents);
        ASSERT_GT(milestone(), 0);
    }

    std::mt19937_64 random;
    Primary primary;
    std::size_t stream_bytes_ = 0, returned_bytes_ = 0;
    std::string receiver_system_;

  private:
    std::int64_t time_ = FirstTime;
};

constexpr int CasesOfEach = 50;

TEST_F(TransferFaults, TheConnectionIsCutAtAnyByte) {
    measure();
    for (int n = 0; n < CasesOfEach && !HasFailure(); ++n)
        survive({.cut = {.forward = random() % stream_bytes_}}, n % 2 == 0);
}

TEST_F(TransferFaults, TheMilestonesAreCutWithinTheirBytes) {
    measure();
    for (int n = 0; n < CasesOfEach && !HasFailure(); ++n)
        survive({.cut = {.backward = random() % returned_bytes_}}, n % 2 == 0);
}

TEST_F(TransferFaults, TheReceiverIsKilled) {
    measure();
    for (int n = 0; n < CasesOfEach && !HasFailure(); ++n)
        survive({.receiver_dies_at = static_cast<int>(random() % 100)}, n % 2 == 0);
}

TEST_F(TransferFaults, TheSenderIsKilled) {
    measure();
    for (int n = 0; n < CasesOfEach && !HasFailure(); ++n)
        survive({.sender_dies_at = static_cast<int>(random() % 100)}, n % 2 == 0);
}

// Writes rising numbers under ten keys of the primary's journalled file, until it is killed or `most` are written.
// `done` is shared: the last number whose write has returned.
[[noreturn]] void write_numbers(const std::string &path, std::atomic<int> &done, int most) {
    DP *const session = velda_getdp();
    VediControlBlock file;
    if (VediOpen(session, &file, path.c_str(), 0, 0) != 0) _exit(1);
    for (int written = 0; written < most; ++written) {
        const std::string data = std::to_string(done + 1), key = "n" + std::to_string((done + 1) % 10);
        if (VediWriteRecord(session, &file, VEDI_BINARY, key.data(), static_cast<std::uint32_t>(key.size()),
                            data.data(), static_cast<std::uint32_t>(data.size()), 0) != 0)
            _exit(1);
        ++done;
    }
    VediClose(session, &file, 0);
    _exit(0);
}

TEST_F(TransferFaults, TheWriterOfTheJournalIsKilled) {
    constexpr int Kills = 25;
    receiver_system_ = system_ / "receiver";
    std::filesystem::create_directory(receiver_system_);
    const std::string journal = system_ / "journal";
    ASSERT_EQ(set_file(2, 1, journal), 0);
    ASSERT_EQ(swap(2), 0);
    ASSERT_EQ(admin([&] { return VELDALoggerChangeStatus(dp, VELDA_LOGGER_ACTIVE); }), 0);
    ASSERT_TRUE(store::create_file(primary_file(), "HL", {.durability = store::Durability::Lazy, .options = {}}).ok());
    make_replica();
    void *const memory = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto &done = *static_cast<std::atomic<int> *>(memory);
    for (int n = 0; n <= Kills && !HasFailure(); ++n) {
        const bool is_last = n == Kills;
        std::fflush(nullptr);
        const pid_t writer = fork();
        if (writer == 0) write_numbers(primary_file(), done, is_last ? 20 : 1'000'000);
        if (!is_last) {
            std::this_thread::sleep_for(std::chrono::microseconds(2000 + random() % 20000));
            kill(writer, SIGKILL);
        }
        int status = 0;
        waitpid(writer, &status, 0);
        EXPECT_EQ(is_last ? code_of(status) : 0, 0);
        EXPECT_EQ(transfer({}, n % 2 == 0, milestone() != 0), 0);
        const Contents contents = replica();
        for (int number = std::max(1, done - 9); number <= done; ++number) {
            const auto found = contents.find("n" + std::to_string(number % 10));
            ASSERT_NE(found, contents.end()) << number;
            EXPECT_GE(std::stoi(found->second), number) << "a write that had returned is missing";
        }
    }
    EXPECT_EQ(replica(), contents_of(primary_file()));
    munmap(memory, 4096);
}

}  // namespace
}  // namespace velda::test
