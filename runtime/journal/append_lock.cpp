#include "runtime/journal/append_lock.h"

#include <algorithm>
#include <cerrno>

#include "runtime/process/context.h"
#include "runtime/store/boot_id.h"

namespace velda::journal {

namespace {

void make_robust(pthread_mutex_t &mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void rest(int moments) {
#if defined(__x86_64__)
    for (int n = 0; n < moments; ++n) __builtin_ia32_pause();
#endif
}

// An append takes less time than going to sleep for it. But a look at the lock takes it out of its holder's cache, and
// a hand-over takes along everything that an append touches: who waits looks more and more rarely, so that the holder
// makes many appends in the meantime. All looks together last some hundreds of microseconds.
int take(pthread_mutex_t &mutex) {
    constexpr int First = 16, Longest = 4096, Tries = 12;
    for (int n = 0, moments = First; n < Tries; ++n, moments = std::min(2 * moments, Longest)) {
        const int result = pthread_mutex_trylock(&mutex);
        if (result != EBUSY) return result;
        rest(moments);
    }
    return pthread_mutex_lock(&mutex);
}

}  // namespace

int prepare_writer_state(DP *dp, Configuration &configuration) {
    WriterState &state = writer_state(*configuration.record);
    const std::uint64_t boot = store::current_boot();
    if (state.boot.load(std::memory_order_acquire) == boot) return 0;
    if (const int error = configuration.lock_file->take(LockByte::Writer, dp)) return error;
    if (state.boot.load(std::memory_order_acquire) != boot) {
        make_robust(state.append_lock);
        make_robust(state.sync_lock);
        state.needs_recovery.store(1);
        state.boot.store(boot, std::memory_order_release);
    }
    configuration.lock_file->leave(LockByte::Writer);
    return 0;
}

AppendLock::AppendLock(WriterState &state) : state_(state) {
    if (take(state_.append_lock) != EOWNERDEAD) return;
    pthread_mutex_consistent(&state_.append_lock);
    inherited_ = true;
}

AppendLock::~AppendLock() { pthread_mutex_unlock(&state_.append_lock); }

}  // namespace velda::journal
