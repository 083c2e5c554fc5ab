#include <cstring>

#include "runtime/lock/lock_table.h"

namespace velda {

namespace {

// Odd constants with about as many set as clear bits, so that a multiplication spreads every bit of a word.
constexpr std::uint64_t Spread1 = 0x9E3779B97F4A7C15u;
constexpr std::uint64_t Spread2 = 0xD6E8FEB86659FD93u;

std::uint64_t folded_product(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t load_word(const char *from, std::size_t size_bytes) {
    std::uint64_t word = 0;
    if (size_bytes != 0) std::memcpy(&word, from, size_bytes);
    return word;
}

}  // namespace

std::uint64_t lock_hash(std::string_view key) {
    const char *at = key.data();
    std::size_t left = key.size();
    std::uint64_t hash = Spread1 ^ key.size();
    for (; left > 8; at += 8, left -= 8) hash = folded_product(hash ^ load_word(at, 8), Spread2);
    hash = folded_product(hash ^ load_word(at, left), Spread2);
    return folded_product(hash, Spread1);
}

std::uint64_t lock::hash_of(const LockName &name) {
    const std::uint64_t file = folded_product(name.file.inode ^ Spread1, name.file.device ^ Spread2);
    return folded_product(lock_hash(name.key) ^ file, Spread1 + static_cast<std::uint64_t>(name.kind));
}

}  // namespace velda
