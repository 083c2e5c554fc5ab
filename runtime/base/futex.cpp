#include "runtime/base/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <climits>
#include <ctime>

namespace velda {

namespace {

constexpr std::size_t MaxWatchedWords = 4;
constexpr std::chrono::milliseconds OneWordLimit{50};

timespec monotonic_deadline(std::chrono::milliseconds limit) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto nanoseconds = now.tv_nsec + (limit.count() % 1000) * 1'000'000;
    return {now.tv_sec + limit.count() / 1000 + nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
}

// False when this kernel cannot watch several words.
bool sleep_on_all(std::span<const WatchedWord> words, std::chrono::milliseconds limit) {
    futex_waitv watched[MaxWatchedWords] = {};
    for (std::size_t i = 0; i < words.size(); ++i) {
        watched[i].uaddr = reinterpret_cast<std::uintptr_t>(words[i].word);
        watched[i].val = words[i].seen;
        watched[i].flags = FUTEX_32;
    }
    const timespec deadline = monotonic_deadline(limit);
    return syscall(SYS_futex_waitv, watched, words.size(), 0, &deadline, CLOCK_MONOTONIC) >= 0 || errno != ENOSYS;
}

void sleep_on_one(const WatchedWord &word, std::chrono::milliseconds limit) {
    const timespec time{limit.count() / 1000, (limit.count() % 1000) * 1'000'000};
    syscall(SYS_futex, word.word, FUTEX_WAIT, word.seen, &time, nullptr, 0);
}

}  // namespace

void sleep_on(std::span<const WatchedWord> words, std::chrono::milliseconds limit) {
    assert(!words.empty() && words.size() <= MaxWatchedWords);
    if (words.size() == 1) return sleep_on_one(words[0], limit);
    if (!sleep_on_all(words, limit)) sleep_on_one(words[0], std::min(limit, OneWordLimit));
}

void wake_sleepers(std::atomic<std::uint32_t> &word) {
    syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace velda
