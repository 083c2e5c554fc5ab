// random_driver.cpp - runs a fuzz target without libFuzzer: random inputs for some seconds, so that every build and every
// compiler can give each target a short run. It knows no coverage; `make fuzz` is the real thing.
//
// usage: NAME_fuzz_random SECONDS          random inputs, the seed is printed and taken back from VELDA_TEST_SEED
//        NAME_fuzz_random FILE ...         runs these inputs
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/seed.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

constexpr std::size_t LongestInputBytes = 400;
constexpr std::size_t KeptInputs = 64;

// Bytes that mean something to the parsers: marks, digits, quotes, separators, escapes.
constexpr std::string_view TellingBytes = "\xFE\xFD\xFC\xFB\xFF 0123456789ANXanx'\"(),.*-+%#\\^:=\n\r\t\x1B/DGMLRT";

using Random = std::mt19937_64;

char random_byte(Random &random) {
    return random() % 4 ? TellingBytes[random() % TellingBytes.size()] : static_cast<char>(random());
}

std::string fresh_input(Random &random) {
    std::string input(random() % LongestInputBytes, '\0');
    for (char &byte : input) byte = random_byte(random);
    return input;
}

// A kept input with some bytes changed, removed, put in or repeated.
std::string changed_input(Random &random, std::string input) {
    for (std::size_t changes = 1 + random() % 8; changes > 0; --changes) {
        const std::size_t at = input.empty() ? 0 : random() % input.size();
        switch (random() % 4) {
            case 0: input.insert(at, 1, random_byte(random)); break;
            case 1: input.erase(at, 1 + random() % 4); break;
            case 2: input.insert(at, input.substr(at, random() % 16)); break;
            default: if (!input.empty()) input[at] = random_byte(random);
        }
    }
    return input.substr(0, LongestInputBytes);
}

void run(std::string_view input) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
}

void run_for(double seconds) {
    Random random = velda::test::seeded_random();
    std::vector<std::string> kept(KeptInputs);
    const auto start = std::chrono::steady_clock::now();
    std::uint64_t inputs = 0;
    while (std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() < seconds) {
        std::string &slot = kept[random() % KeptInputs];
        slot = random() % 3 ? changed_input(random, kept[random() % KeptInputs]) : fresh_input(random);
        run(slot);
        ++inputs;
    }
    std::printf("%llu inputs, no fault\n", static_cast<unsigned long long>(inputs));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::atof(argv[1]) > 0) {
        run_for(std::atof(argv[1]));
        return 0;
    }
    for (int n = 1; n < argc; ++n) {
        std::ifstream file(argv[n], std::ios::binary);
        run(std::string(std::istreambuf_iterator<char>(file), {}));
    }
    return argc > 1 ? 0 : 2;
}
