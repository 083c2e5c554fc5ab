#include "runtime/lock/owner_life.h"

#include <linux/futex.h>

namespace velda::lock {

namespace {

// A robust mutex is a futex word of a form that the kernel fixes, since the kernel itself marks it at the holder's
// death: the holder's thread number, a bit for sleepers and a bit for death.
std::atomic<std::uint32_t> &life_word(OwnerSlot &slot) {
    static_assert(sizeof slot.life.__data.__lock == sizeof(std::atomic<std::uint32_t>));
    return reinterpret_cast<std::atomic<std::uint32_t> &>(slot.life.__data.__lock);
}

}  // namespace

Life life_of(const OwnerSlot &slot) {
    const std::uint32_t word = life_word(const_cast<OwnerSlot &>(slot)).load(std::memory_order_acquire);
    if (word & FUTEX_OWNER_DIED) return Life::Ended;
    return word & FUTEX_TID_MASK ? Life::Lives : Life::None;
}

std::optional<WatchedWord> watch_life(OwnerSlot &slot) {
    std::atomic<std::uint32_t> &word = life_word(slot);
    std::uint32_t seen = word.load();
    // Without the bit the kernel would not look for sleepers. The mutex itself takes it for a sleeper of its own.
    while (seen & FUTEX_TID_MASK && !(seen & FUTEX_OWNER_DIED)) {
        if (seen & FUTEX_WAITERS || word.compare_exchange_weak(seen, seen | FUTEX_WAITERS))
            return WatchedWord{&word, seen | FUTEX_WAITERS};
    }
    return std::nullopt;
}

}  // namespace velda::lock
