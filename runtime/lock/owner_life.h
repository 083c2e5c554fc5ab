// owner_life.h - whether the thread behind an owner slot lives. Private to the folder.
#pragma once

#include <optional>

#include "runtime/base/futex.h"
#include "runtime/lock/lock_layout.h"

namespace velda::lock {

enum class Life {
    None,  // nobody uses the slot
    Lives,
    Ended  // its owner died with the slot in use: it must be reaped
};

// Looks without touching. For a decision, trylock `life` and look again.
Life life_of(const OwnerSlot &slot);

// The word that the kernel changes and wakes when the owner dies, prepared for a sleeper; nullopt when it does not
// live.
std::optional<WatchedWord> watch_life(OwnerSlot &slot);

}  // namespace velda::lock
