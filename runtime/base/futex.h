// futex.h - sleeping on words of shared memory. Private to the runtime.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <span>

namespace velda {

// A word that a sleeper watches, and what it read there before it decided to sleep.
struct WatchedWord {
    std::atomic<std::uint32_t> *word;
    std::uint32_t seen;
};

// Sleeps until one of the words is woken or no longer holds what was seen, a signal is handled, or the time is over; it
// may also return for no reason. Where the kernel can watch only one word, that is the first one, and the sleep is
// cut to a twentieth of a second when there are others.
void sleep_on(std::span<const WatchedWord> words, std::chrono::milliseconds limit);

// Wakes everyone who sleeps on the word.
void wake_sleepers(std::atomic<std::uint32_t> &word);

}  // namespace velda
