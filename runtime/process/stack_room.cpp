#include "runtime/process/stack_room.h"

#include <pthread.h>

#include <cstddef>

namespace velda {
namespace {

// What the end of a command needs: messages, exit handlers, the unwinding itself.
constexpr std::size_t ReserveBytes = 256 * 1024;

// The lowest address at which a call may begin. Stacks grow down.
const char *lowest_address() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return nullptr;
    void *bottom = nullptr;
    std::size_t size_bytes = 0;
    const bool known = pthread_attr_getstack(&attributes, &bottom, &size_bytes) == 0;
    pthread_attr_destroy(&attributes);
    return known && size_bytes > 2 * ReserveBytes ? static_cast<const char *>(bottom) + ReserveBytes : nullptr;
}

}  // namespace

bool stack_nearly_full() {
    static thread_local const char *const lowest = lowest_address();
    return static_cast<const char *>(__builtin_frame_address(0)) < lowest;
}

}  // namespace velda
