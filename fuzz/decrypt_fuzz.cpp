// Enciphered texts from outside: the first byte picks the scheme. Deciphering never crashes, and what it accepts is a
// text that enciphering gives.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "runtime/crypt/scheme.h"

using namespace velda::crypt;

namespace {

KeyRing ring;
constexpr std::string_view Key = "fuzz";

void check(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    const Scheme *scheme = scheme_by_number(data[0] % 14);
    if (!scheme) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const auto plain = decrypt(ring, *scheme, Key, text);
    if (plain) check(*encrypt(ring, *scheme, Key, *plain) == text);
    const auto enciphered = encrypt(ring, *scheme, Key, text);
    check(*decrypt(ring, *scheme, Key, *enciphered) == text);
    return 0;
}
