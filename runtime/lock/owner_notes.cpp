#include "runtime/lock/owner_notes.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "runtime/lock/death_point.h"

namespace velda::lock {

namespace {

constexpr int ReadTries = 1000;
constexpr std::size_t WordBytes = sizeof(std::uint64_t);

std::size_t words_for(std::size_t size_bytes) { return (size_bytes + WordBytes - 1) / WordBytes; }

std::optional<std::string> try_read(const OwnerNotes &notes) {
    const std::uint32_t before = notes.version.load(std::memory_order_acquire);
    if (before % 2 != 0) return std::nullopt;
    const std::size_t size = std::min<std::size_t>(notes.size_bytes.load(std::memory_order_acquire), MaxNoteBytes);
    std::string text(words_for(size) * WordBytes, '\0');
    for (std::size_t i = 0; i < words_for(size); ++i) {
        const std::uint64_t word = notes.words[i].load(std::memory_order_acquire);
        std::memcpy(text.data() + i * WordBytes, &word, WordBytes);
    }
    text.resize(size);
    return notes.version.load(std::memory_order_relaxed) == before ? std::optional(text) : std::nullopt;
}

}  // namespace

// Each store is a release, so that a reader who sees any part of the change sees the odd version too.
void write_notes(OwnerNotes &notes, std::string_view text) {
    const std::string_view kept = text.substr(0, MaxNoteBytes);
    const std::uint32_t changing = notes.version.load(std::memory_order_relaxed) | 1;
    notes.version.store(changing, std::memory_order_relaxed);
    notes.size_bytes.store(static_cast<std::uint32_t>(kept.size()), std::memory_order_release);
    death_point();
    for (std::size_t i = 0; i < words_for(kept.size()); ++i) {
        std::uint64_t word = 0;
        std::memcpy(&word, kept.data() + i * WordBytes, std::min(WordBytes, kept.size() - i * WordBytes));
        notes.words[i].store(word, std::memory_order_release);
    }
    notes.version.store(changing + 1, std::memory_order_release);
}

std::string read_notes(const OwnerNotes &notes) {
    for (int tries = 0; tries < ReadTries; ++tries) {
        if (auto text = try_read(notes)) return *text;
    }
    return "";
}

}  // namespace velda::lock
