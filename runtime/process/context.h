// context.h - the session context behind DP, as the runtime's own families see it. Private to the runtime.
//
// A context is one session: one thread of logic, one port, one set of named commons, one owner of locks. A family keeps
// its per-session state in a type of its own and reaches it by dp->state<Type>(), which makes it on first use; so no
// family's header is needed by another's.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "runtime/vdefc.h"

struct DP {
    DP();
    ~DP();
    DP(const DP &) = delete;
    DP &operator=(const DP &) = delete;

    // The calling family's state in this context, default-constructed on first use (from DP & when it takes one).
    template <class T>
    T &state() {
        const std::size_t slot = slot_of<T>();
        if (slot < slots_.size() && slots_[slot]) return *static_cast<T *>(slots_[slot].get());
        return *static_cast<T *>(install(slot, make<T>()));
    }

    // Code of the last failed operation: SYSTEM(0).
    int last_error = 0;

    // Counts interrupts and messages that arrived for this context; a wait that sees it move returns to its caller.
    std::atomic<std::uint32_t> event_counter{0};

    // Interrupts sent to this context alone, from any thread, as by a kill from another port (raise_interrupt).
    std::atomic<std::uint32_t> raised_interrupts{0};

    // Unique in this process, from 1; never used again.
    const std::uint32_t serial;

    // The process that made the context. A forked child that finds another process's number here must leave the
    // context's port, locks and files alone: they are its parent's.
    const pid_t process;

  private:
    using Slot = std::unique_ptr<void, void (*)(void *)>;

    template <class T>
    Slot make() {
        if constexpr (std::is_constructible_v<T, DP &>)
            return Slot(new T(*this), [](void *p) { delete static_cast<T *>(p); });
        else
            return Slot(new T(), [](void *p) { delete static_cast<T *>(p); });
    }
    static std::size_t next_slot();
    template <class T>
    static std::size_t slot_of() {
        static const std::size_t slot = next_slot();
        return slot;
    }
    void *install(std::size_t slot, Slot content);

    std::vector<Slot> slots_;
    std::vector<std::size_t> order_;  // slots in the order of their making; destroyed in reverse
};

namespace velda {

// Makes a context the thread's current one for a scope.
class CurrentContext {
  public:
    explicit CurrentContext(DP *dp);
    ~CurrentContext();
    CurrentContext(const CurrentContext &) = delete;
    CurrentContext &operator=(const CurrentContext &) = delete;

  private:
    DP *previous_;
};

}  // namespace velda
