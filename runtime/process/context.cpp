#include "runtime/process/context.h"

#include <pthread.h>
#include <unistd.h>

#include <utility>

#include "runtime/process/command_level.h"
#include "runtime/process/process.h"

namespace {

std::atomic<std::uint32_t> last_serial{0};
std::atomic<std::size_t> slot_count{0};

void destroy_context(DP *dp) {
    velda::end_session_level(dp);
    delete dp;
}

// The contexts that a thread holds: the one made for it, and the one that is current, which may be another.
struct ThreadContexts {
    DP *own = nullptr;
    DP *current = nullptr;

    ~ThreadContexts() {
        if (own) destroy_context(own);
        own = current = nullptr;
    }
};
thread_local ThreadContexts thread_contexts;

// In a forked child the inherited contexts still stand for sessions of the parent, whose port and locks they would
// release. They are dropped without being torn down, and kept reachable here.
std::vector<DP *> inherited_contexts;

void forget_inherited_contexts() {
    if (thread_contexts.own) inherited_contexts.push_back(thread_contexts.own);
    thread_contexts.own = thread_contexts.current = nullptr;
}

[[maybe_unused]] const int fork_handler_installed = pthread_atfork(nullptr, nullptr, forget_inherited_contexts);

}  // namespace

DP::DP() : serial(++last_serial), process(getpid()) {}

DP::~DP() {
    while (!order_.empty()) {
        // Off the list first: a state may ask for another one while it is destroyed.
        const std::size_t slot = order_.back();
        order_.pop_back();
        slots_[slot].reset();
    }
}

std::size_t DP::next_slot() { return slot_count++; }

void *DP::install(std::size_t slot, Slot content) {
    while (slots_.size() <= slot) slots_.emplace_back(nullptr, [](void *) {});
    slots_[slot] = std::move(content);
    order_.push_back(slot);
    return slots_[slot].get();
}

namespace velda {

CurrentContext::CurrentContext(DP *dp) : previous_(velda_set_context(dp)) {}
CurrentContext::~CurrentContext() { velda_set_context(previous_); }

}  // namespace velda

DP *velda_getdp(void) {
    ThreadContexts &contexts = thread_contexts;
    if (!contexts.current) {
        if (!contexts.own) contexts.own = new DP;
        contexts.current = contexts.own;
    }
    return contexts.current;
}

DP *velda_getdp_nocreate(void) { return thread_contexts.current; }

DP *velda_new_context(void) { return new DP; }

DP *velda_set_context(DP *dp) { return std::exchange(thread_contexts.current, dp); }

void velda_free_context(DP *dp) {
    if (thread_contexts.current == dp) thread_contexts.current = nullptr;
    if (thread_contexts.own == dp) thread_contexts.own = nullptr;
    if (dp) destroy_context(dp);
}
