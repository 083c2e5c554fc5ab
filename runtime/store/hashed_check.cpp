// CHECK-FILE of a hashed file. The walk runs in a child process: whatever a damaged file does to it is a finding, not
// the end of the command. The child opens the file for itself, for a snapshot that keeps the pages as they are while
// others write, and sends each finding as a line.
#include <fcntl.h>
#include <lmdb.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "runtime/store/boot_id.h"
#include "runtime/store/file_turn.h"
#include "runtime/store/hashed_file.h"
#include "runtime/store/page_walk.h"
#include "runtime/store/path.h"

namespace velda::store {
namespace {

constexpr char FindingLine = 'F';
constexpr char RecordsLine = 'R';  // the number of records, sent last

void send_line(int pipe_end, char kind, std::string_view text) {
    std::string line(1, kind);
    line.append(text).push_back('\n');
    for (std::string_view rest = line; !rest.empty();) {
        const ssize_t put = write(pipe_end, rest.data(), rest.size());
        if (put < 0 && errno != EINTR) _exit(1);
        if (put > 0) rest.remove_prefix(static_cast<std::size_t>(put));
    }
}

// A transaction whose only use is that its snapshot's pages stay as they are; null when LMDB refuses.
MDB_txn *hold_snapshot(const std::string &path, MDB_env *&lmdb) {
    MDB_txn *snapshot = nullptr;
    for (const unsigned without_lock : {0U, static_cast<unsigned>(MDB_NOLOCK)}) {
        if (mdb_env_create(&lmdb)) return nullptr;
        if (mdb_env_open(lmdb, path.c_str(), MDB_NOSUBDIR | MDB_RDONLY | without_lock, 0666) == 0 &&
            mdb_txn_begin(lmdb, nullptr, MDB_RDONLY, &snapshot) == 0)
            return snapshot;
        mdb_env_close(lmdb);
    }
    return nullptr;
}

void walk_in_child(const std::string &path, int descriptor, int pipe_end) {
    const CheckReport report = [&](std::string_view finding) { send_line(pipe_end, FindingLine, finding); };
    WalkResult result;
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto head = read_file_head(descriptor, path);
        if (!head) {
            report(head.error().message);
            break;
        }
        MDB_env *lmdb = nullptr;
        MDB_txn *const snapshot = hold_snapshot(path, lmdb);
        if (auto again = read_file_head(descriptor, path)) head = std::move(again);
        const std::uint64_t transaction = snapshot ? mdb_txn_id(snapshot) : head->newest().transaction;
        if (!head->state_of(transaction)) {  // two commits came in between
            mdb_txn_abort(snapshot);
            mdb_env_close(lmdb);
            continue;
        }
        if (!snapshot) report("LMDB cannot open it; its pages are walked all the same");
        result = walk_pages(descriptor, *head, transaction, report);
        break;
    }
    send_line(pipe_end, RecordsLine, std::to_string(result.records));
}

struct ChildReport {
    std::uint64_t records = 0;
    std::uint64_t findings = 0;
    bool complete = false;
};

ChildReport read_report(int pipe_end, const CheckReport &report) {
    ChildReport result;
    std::string pending;
    char chunk[4096];
    for (;;) {
        const ssize_t got = read(pipe_end, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return result;
        pending.append(chunk, static_cast<std::size_t>(got));
        for (std::size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
            const std::string line = pending.substr(1, end - 1);
            if (pending[0] == RecordsLine) {
                result.records = std::stoull(line);
                result.complete = true;
            } else {
                ++result.findings;
                report(line);
            }
        }
    }
}

int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// A clean walk: a lazy file that another boot left unclean may be used again.
Result<void> clear_mark(int descriptor, const std::string &path) {
    auto head = read_file_head(descriptor, path);
    if (!head || head->label.unclean_boot == 0 || head->label.unclean_boot == current_boot()) return {};
    const FileTurn turn(descriptor);
    MappedLabel label;
    if (auto mapped = label.map(descriptor, true, path); !mapped) return mapped;
    if (fsync(descriptor) < 0) return system_error(errno, "cannot sync file", path);
    label.set_unclean_boot(0);
    if (fdatasync(descriptor) < 0) return system_error(errno, "cannot sync file", path);
    return {};
}

}  // namespace

Result<std::uint64_t> HashedDriver::check(const std::string &path, const CheckReport &report) {
    int number = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool writable = number >= 0;
    if (!writable) number = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const Descriptor file(number);
    int ends[2];
    if (number < 0 || pipe2(ends, O_CLOEXEC) < 0) return system_error(errno, "cannot check file", path);
    const Descriptor read_end(ends[0]);
    Descriptor write_end(ends[1]);
    const pid_t child = fork();
    if (child < 0) return system_error(errno, "cannot check file", path);
    if (child == 0) {
        walk_in_child(path, file.number(), write_end.number());
        _exit(0);
    }
    write_end.close();
    const ChildReport result = read_report(read_end.number(), report);
    const int status = wait_for(child);
    if (!result.complete) {
        report("the check itself was ended by " +
               (WIFSIGNALED(status) ? std::string(strsignal(WTERMSIG(status))) : "an error"));
    } else if (result.findings == 0 && writable) {
        if (auto cleared = clear_mark(file.number(), path); !cleared) return cleared.error();
    }
    return result.records;
}

}  // namespace velda::store
