// A function called at a steady pace beside what the session does.
#include <csignal>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

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

// All signals stay with the threads that were there before: a signal has to interrupt what the session waits for.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

  private:
    sigset_t before_;
};

}  // namespace

VELDATicker *velda_ticker_start(DP *, int milliseconds, void (*tick)(void *argument), void *argument) {
    if (milliseconds < 1 || !tick) {
        errno = EINVAL;
        return nullptr;
    }
    auto *const ticker = new VELDATicker;
    const SignalsBlocked blocked;
    try {
        ticker->thread = std::thread([=] { run(*ticker, milliseconds, tick, argument); });
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
