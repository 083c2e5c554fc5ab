// cipher.h - the block ciphers and digests of libcrypto, as the schemes need them. Private to the runtime.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "runtime/base/result.h"

namespace velda::crypt {

enum class Cipher { None, Rot13, Xor11, Rc2, Des, TripleDes, Blowfish, AesCtr };
enum class Way { Encrypt, Decrypt };

// What a block cipher needs; sizes 0 for a cipher that libcrypto has no part in.
struct CipherSizes {
    std::size_t key = 0;
    std::size_t initial_value = 0;
    std::size_t block = 0;  // a ciphertext is a multiple of this long, and longer than the plain text unless it is 1
};
CipherSizes cipher_sizes(Cipher cipher);

// Runs a block cipher in its mode (CBC with PKCS#7 padding, AES as CTR) under a raw key and initial value of the right
// sizes. The error is 95 when libcrypto lacks the cipher, naming it, and 74 when a ciphertext has no right padding.
Result<std::string> run_cipher(Cipher cipher, Way way, std::string_view key, std::string_view initial_value,
                               std::string_view text);

// `size` bytes stretched from a pass phrase, slow on purpose (PBKDF2 with HMAC-SHA-256).
std::string stretch(std::string_view phrase, std::string_view salt, int iterations, std::size_t size);

// HMAC-SHA-256 of a text.
std::string message_code(std::string_view key, std::string_view text);

// Compares without telling by its time where two texts differ.
bool same_secret(std::string_view a, std::string_view b);

}  // namespace velda::crypt
