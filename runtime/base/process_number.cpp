#include "runtime/base/process_number.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace velda {

namespace {

std::atomic<pid_t> known{0};

pid_t ask() {
    static const int registered = pthread_atfork(nullptr, nullptr, [] { known.store(getpid()); });
    (void)registered;
    known.store(getpid());
    return known.load();
}

}  // namespace

pid_t process_number() {
    const pid_t number = known.load(std::memory_order_relaxed);
    return number != 0 ? number : ask();
}

}  // namespace velda
