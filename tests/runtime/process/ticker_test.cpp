// Functions called at a steady pace beside the session.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "runtime/process/process.h"

namespace {

void count(void *argument) { ++*static_cast<std::atomic<int> *>(argument); }

void pause_milliseconds(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

TEST(Ticker, CallsAtItsPaceUntilItIsStopped) {
    std::atomic<int> calls = 0;
    VELDATicker *const ticker = velda_ticker_start(nullptr, 10, count, &calls);
    ASSERT_NE(ticker, nullptr);
    pause_milliseconds(300);
    velda_ticker_stop(nullptr, ticker);
    const int at_the_end = calls;
    EXPECT_GE(at_the_end, 5);
    EXPECT_LE(at_the_end, 31);
    pause_milliseconds(50);
    EXPECT_EQ(calls, at_the_end);
}

TEST(Ticker, IsNotCalledDuringAPause) {
    std::atomic<int> calls = 0;
    VELDATicker *const ticker = velda_ticker_start(nullptr, 1, count, &calls);
    velda_ticker_pause(nullptr, ticker);
    const int before = calls;
    pause_milliseconds(50);
    EXPECT_EQ(calls, before);
    velda_ticker_resume(nullptr, ticker);
    pause_milliseconds(100);
    velda_ticker_stop(nullptr, ticker);
    EXPECT_GT(calls, before);
}

TEST(Ticker, LeavesSignalsToTheSession) {
    static std::atomic<int> on_own_thread;
    static std::thread::id own;
    own = std::this_thread::get_id();
    on_own_thread = 0;
    struct sigaction action = {}, before;
    action.sa_handler = [](int) { on_own_thread += std::this_thread::get_id() == own; };
    sigaction(SIGUSR1, &action, &before);
    std::atomic<int> calls = 0;
    VELDATicker *const ticker = velda_ticker_start(nullptr, 1, count, &calls);
    for (int n = 0; n < 20; ++n) kill(getpid(), SIGUSR1);
    velda_ticker_stop(nullptr, ticker);
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ(on_own_thread, 20);
}

TEST(Ticker, RefusesAPaceOrAFunctionThatIsNone) {
    EXPECT_EQ(velda_ticker_start(nullptr, 0, count, nullptr), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(velda_ticker_start(nullptr, 10, nullptr, nullptr), nullptr);
    velda_ticker_stop(nullptr, nullptr);
    velda_ticker_pause(nullptr, nullptr);
    velda_ticker_resume(nullptr, nullptr);
}

}  // namespace
