#include "runtime/process/context.h"

namespace {
std::atomic<std::uint32_t> last_serial{0};
std::atomic<std::size_t> slot_count{0};
}  // namespace

DP::DP() : serial(++last_serial) {}

DP::~DP()
{
    while (!order_.empty()) {
        slots_[order_.back()].reset();
        order_.pop_back();
    }
}

std::size_t DP::next_slot() { return slot_count++; }

void *DP::install(std::size_t slot, Slot content)
{
    while (slots_.size() <= slot) slots_.emplace_back(nullptr, [](void *) {});
    slots_[slot] = std::move(content);
    order_.push_back(slot);
    return slots_[slot].get();
}
