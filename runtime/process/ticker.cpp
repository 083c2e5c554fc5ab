// A function called at a steady pace beside what the session does.
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

#include "runtime/base/service_thread.h"
#include "runtime/process/process.h"

struct VELDATicker {
    std::thread thread;
    std::mutex ticking;  // held during a call
    std::mutex mutex;
    std::condition_variable wake;
    bool stopped = false;
};

namespace {

void run(VELDATicker &ticker, int milliseconds, void (*tick)(void *), void *argument) {
    const auto pace = std::chrono::milliseconds(milliseconds);
    auto next = std::chrono::steady_clock::now() + pace;
    std::unique_lock lock(ticker.mutex);
    while (!ticker.wake.wait_until(lock, next, [&] { return ticker.stopped; })) {
        lock.unlock();
        {
            const std::lock_guard during(ticker.ticking);
            tick(argument);
        }
        lock.lock();
        next = std::max(next + pace, std::chrono::steady_clock::now());
    }
}

}  // namespace

VELDATicker *velda_ticker_start(DP *, int milliseconds, void (*tick)(void *argument), void *argument) {
    if (milliseconds < 1 || !tick) {
        errno = EINVAL;
        return nullptr;
    }
    auto *const ticker = new VELDATicker;
    try {
        ticker->thread = velda::service_thread([=] { run(*ticker, milliseconds, tick, argument); });
    } catch (const std::system_error &error) {
        delete ticker;
        errno = error.code().value();
        return nullptr;
    }
    return ticker;
}

void velda_ticker_pause(DP *, VELDATicker *ticker) {
    if (ticker) ticker->ticking.lock();
}

void velda_ticker_resume(DP *, VELDATicker *ticker) {
    if (ticker) ticker->ticking.unlock();
}

void velda_ticker_stop(DP *, VELDATicker *ticker) {
    if (!ticker) return;
    {
        const std::lock_guard lock(ticker->mutex);
        ticker->stopped = true;
    }
    ticker->wake.notify_one();
    ticker->thread.join();
    delete ticker;
}
