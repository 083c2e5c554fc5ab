// random.h - random numbers and texts of tests. Each generator prints its seed.
#pragma once

#include <random>
#include <string>
#include <string_view>

#include "tests/support/seed.h"

namespace velda::test {

class Random {
  public:
    Random() : engine_(seeded_random()) {}

    // A number in [low, high].
    long long number(long long low, long long high) {
        return std::uniform_int_distribution<long long>(low, high)(engine_);
    }
    int small(int low, int high) { return static_cast<int>(number(low, high)); }
    bool one_in(int n) { return number(1, n) == 1; }

    // At most `longest` bytes of the alphabet.
    std::string text(int longest, std::string_view alphabet) {
        std::string result(static_cast<std::size_t>(number(0, longest)), ' ');
        for (char &byte : result)
            byte = alphabet[static_cast<std::size_t>(number(0, static_cast<long long>(alphabet.size()) - 1))];
        return result;
    }

  private:
    std::mt19937_64 engine_;
};

}  // namespace velda::test
