// Record locks against the kernel's own, and against themselves with a million locks held. Rows: name, measured, limit.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "runtime/lock/record_lock.h"
#include "runtime/process/context.h"
#include "tests/support/scratch.h"

namespace {

constexpr int Rounds = 7;
constexpr int OperationsPerRound = 200'000;
constexpr int KeyCount = 5'000;  // more than the processor's nearest cache and its table of pages hold
constexpr int HeldCount = 1'000'000;
constexpr velda::store::FileIdentity File{1, 2};

double nanoseconds_each(const std::function<void(int)> &operation) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < OperationsPerRound; ++i) operation(i);
    const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - begin;
    return took.count() / OperationsPerRound;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void require(bool happened, const char *what) {
    if (happened) return;
    std::fprintf(stderr, "lock_bench: %s failed\n", what);
    std::exit(1);
}

bool missed = false;

// The ratio may be at most `limit`.
void row(const char *name, double measured, double limit) {
    missed |= measured > limit;
    std::printf("%-52s %8.2f %8.2f %s\n", name, measured, limit, measured <= limit ? "ok" : "MISSED");
}

std::vector<std::string> make_keys(const char *prefix, int count) {
    std::vector<std::string> keys;
    for (int i = 0; i < count; ++i) keys.push_back(prefix + std::to_string(i * 7919LL % 1'000'003));
    return keys;
}

class KernelLock {
  public:
    explicit KernelLock(const std::string &path) : file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        require(file_ >= 0, "open");
    }
    ~KernelLock() { close(file_); }
    void take_and_release(int byte) {
        set(F_WRLCK, byte);
        set(F_UNLCK, byte);
    }

  private:
    void set(short type, int byte) {
        struct flock lock {};
        lock.l_type = type;
        lock.l_start = byte;
        lock.l_len = 1;
        require(fcntl(file_, F_OFD_SETLK, &lock) == 0, "kernel lock");
    }
    int file_;
};

void take_and_release(DP *dp, const std::string &key) {
    require(velda::lock_record(dp, File, key, velda::Wait::No).granted(), "lock");
    require(velda::unlock_record(dp, File, key), "unlock");
}

// A context of a system of its own, in which another context holds so many locks.
struct System {
    explicit System(int held) {
        for (const std::string &key : make_keys("held*", held))
            require(velda::lock_record(&other, File, key, velda::Wait::No).granted(), "lock");
        // The first lock finds the system's table by the global directory, which the next system changes.
        take_and_release(&context, "first");
    }
    velda::test::ScratchSystem directories;
    DP other;
    DP context;
};

}  // namespace

int main() {
    System empty(0), full(HeldCount);
    KernelLock kernel(empty.directories / "kernel");
    const auto keys = make_keys("key*", KeyCount);
    std::vector<double> few, kernel_times, many;
    for (int round = 0; round < Rounds; ++round) {
        few.push_back(nanoseconds_each([&](int i) { take_and_release(&empty.context, keys[i % KeyCount]); }));
        many.push_back(nanoseconds_each([&](int i) { take_and_release(&full.context, keys[i % KeyCount]); }));
        kernel_times.push_back(nanoseconds_each([&](int i) { kernel.take_and_release(i % KeyCount); }));
    }
    std::printf("# nanoseconds: record %.0f, kernel %.0f, record with %d held %.0f\n", median(few),
                median(kernel_times), HeldCount, median(many));
    row("record lock and unlock / kernel lock and unlock", median(few) / median(kernel_times), 1);
    row("the same with 1,000,000 locks held / with none", median(many) / median(few), 2);
    return missed ? 1 : 0;
}
