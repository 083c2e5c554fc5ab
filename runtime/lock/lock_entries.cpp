// The entries of the lock family.
#include <cerrno>

#include "runtime/lock/lock.h"
#include "runtime/lock/record_lock.h"
#include "runtime/process/context.h"

using namespace velda;

namespace {

constexpr int NotWaiting = 256;  // first mode of VLibELOCK_IIII

enum Operation { Take = 0, Release = 1, ReleaseAll = 2 };

enum Question { DaemonAbsent = 100, Locks = 101 };

int take_execution_lock(DP *dp, int number, Wait wait) {
    const LockOutcome outcome = lock_execution(dp, number, wait);
    if (outcome.result == LockResult::Failed) dp->last_error = outcome.error.number;
    return outcome.granted();
}

// One lock as a report's line: port, value, key, type, inode, device, process, address, and the ports that wait for it.
std::string line_of(const LockInfo &lock) {
    const bool execution = lock.kind == LockKind::Execution;
    std::string line;
    const std::string values[] = {std::to_string(lock.holder.port), execution ? lock.key : "1",
                                  execution ? "" : lock.key,        execution ? "E" : "R",
                                  std::to_string(lock.file.inode),  std::to_string(lock.file.device),
                                  std::to_string(lock.holder.pid),  "local"};
    for (const std::string &value : values) {
        if (&value != values) line += VM;
        line += value;
    }
    for (const LockOwner &waiter : lock.waiters)
        line.append(1, &waiter == &lock.waiters.front() ? VM : SVM).append(std::to_string(waiter.port));
    return line;
}

int report_locks(VAR *target) {
    if (!target) return EINVAL;
    const auto locks = all_locks();
    if (!locks) return locks.error().number;
    std::string lines;
    for (const LockInfo &lock : *locks) {
        if (!lines.empty()) lines += AM;
        lines += line_of(lock);
    }
    *target = std::string_view(lines);
    return 0;
}

}  // namespace

extern "C" {

int VLibELOCK_IIII(DP *dp, int mode, int operation, int number) {
    if ((mode == 0 || mode == NotWaiting) && operation == Take)
        return take_execution_lock(dp, number, mode == NotWaiting ? Wait::No : Wait::Yes);
    if (mode == 0 && operation == Release) return unlock_execution(dp, number);
    if (mode == 0 && operation == ReleaseAll) {
        unlock_all(dp, LockKind::Execution);
        return 1;
    }
    dp->last_error = EINVAL;
    return 0;
}

int VLibFRELEASEALL_I(DP *dp) {
    unlock_all(dp);
    return 1;
}

int vDLS_LockServerActive(DP *) { return 0; }

int vDLS_ClientReadNextInfo(DP *, char **line) {
    if (line) *line = nullptr;
    return -1;
}

int VELDAReturnLockInfo(DP *, int command, VAR *target) {
    switch (command) {
        case DaemonAbsent:
            return 1;
        case Locks:
            return report_locks(target);
        default:
            return EINVAL;
    }
}

}  // extern "C"
