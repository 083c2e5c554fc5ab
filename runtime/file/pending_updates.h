// pending_updates.h - a batch of updates that wait for one file, found by their keys. Private to the family.
#pragma once

#include <array>
#include <cassert>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/store/driver.h"

namespace velda::file {

class PendingUpdates {
  public:
    static constexpr std::size_t Capacity = 1000;

    bool empty() const { return updates_.empty(); }
    bool full() const { return updates_.size() >= Capacity; }
    std::size_t size() const { return updates_.size(); }

    // The bytes of key and record stay where they are until take().
    void add(const store::Update &update) {
        assert(!full());
        updates_.push_back(update);
        slots_[slot_of(update.key)] = static_cast<std::uint16_t>(updates_.size());
    }

    // Whether the record of the key will be there once the updates are made; nullopt when none of them is about it.
    std::optional<bool> will_exist(std::string_view key) const {
        if (updates_.empty()) return std::nullopt;
        const std::uint16_t number = slots_[slot_of(key)];
        if (number == 0) return std::nullopt;
        return updates_[number - 1].record.has_value();
    }

    std::vector<store::Update> take() {
        if (!updates_.empty()) slots_.fill(0);
        return std::exchange(updates_, {});
    }

  private:
    static constexpr std::size_t Slots = 4096;  // a power of two, so large that few keys share a slot
    static_assert(Slots >= 4 * Capacity);

    // Where the key stands, or the free slot where it belongs.
    std::size_t slot_of(std::string_view key) const {
        std::size_t slot = std::hash<std::string_view>()(key) % Slots;
        while (slots_[slot] != 0 && updates_[slots_[slot] - 1].key != key) slot = (slot + 1) % Slots;
        return slot;
    }

    std::vector<store::Update> updates_;
    std::array<std::uint16_t, Slots> slots_{};  // number of the last update of a key, from 1
};

}  // namespace velda::file
