// hash.h - the hash of byte strings that the store's disk formats use. It may never change: long keys are found by it.
#pragma once

#include <cstdint>
#include <string_view>

namespace velda::store {

// FNV-1a with a final mix, so that the low and the high bits are equally good.
constexpr std::uint64_t hash_bytes(std::string_view bytes, std::uint64_t seed = 0) {
    std::uint64_t hash = 0xCBF29CE484222325ULL ^ seed;
    for (const char byte : bytes) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 0x100000001B3ULL;
    }
    hash ^= hash >> 32;
    hash *= 0x9E3779B97F4A7C15ULL;
    return hash ^ (hash >> 29);
}

// Tests replace it by a weak one, to make equal hashes common.
using KeyHash = std::uint64_t (*)(std::string_view key);
inline std::uint64_t strong_key_hash(std::string_view key) { return hash_bytes(key); }
extern KeyHash long_key_hash;

}  // namespace velda::store
