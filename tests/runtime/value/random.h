// random.h - random numbers and texts of tests. Each prints its seed; VELDA_TEST_SEED repeats a run.
#pragma once

#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <string_view>

namespace velda::test {

class Random {
  public:
    Random() {
        const char *const given = std::getenv("VELDA_TEST_SEED");
        const unsigned seed = given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
        std::cout << "VELDA_TEST_SEED=" << seed << std::endl;
        engine_.seed(seed);
    }

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
