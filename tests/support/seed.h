// seed.h - random tests: a generator that prints its seed and takes it back, and random texts.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace velda::test {

// A generator whose seed is printed, and taken from VELDA_TEST_SEED when that is set.
inline std::mt19937_64 seeded_random() {
    const char *given = std::getenv("VELDA_TEST_SEED");
    const std::uint64_t seed = given ? std::strtoull(given, nullptr, 10) : std::random_device{}();
    std::printf("seed %llu (VELDA_TEST_SEED)\n", static_cast<unsigned long long>(seed));
    return std::mt19937_64(seed);
}

// Up to `longest` bytes of any value.
inline std::string random_bytes(std::mt19937_64 &random, std::size_t longest) {
    std::string bytes(random() % (longest + 1), '\0');
    for (char &c : bytes) c = static_cast<char>(random());
    return bytes;
}

}  // namespace velda::test
