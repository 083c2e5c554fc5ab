#include "runtime/crypt/scheme.h"

#include <openssl/crypto.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>

#include "runtime/crypt/base64.h"
#include "runtime/crypt/builtin_keys.h"

namespace velda::crypt {
namespace {

constexpr Scheme Schemes[] = {
    {VELDA_SCHEME_ROT13, "ROT13", Cipher::Rot13, false},
    {VELDA_SCHEME_XOR11, "XOR11", Cipher::Xor11, false},
    {VELDA_SCHEME_RC2, "RC2", Cipher::Rc2, false},
    {VELDA_SCHEME_BASE64, "BASE64", Cipher::None, true},
    {VELDA_SCHEME_DES, "DES", Cipher::Des, false},
    {VELDA_SCHEME_3DES, "3DES", Cipher::TripleDes, false},
    {VELDA_SCHEME_BLOWFISH, "BLOWFISH", Cipher::Blowfish, false},
    {VELDA_SCHEME_RC2_BASE64, "RC2_BASE64", Cipher::Rc2, true},
    {VELDA_SCHEME_DES_BASE64, "DES_BASE64", Cipher::Des, true},
    {VELDA_SCHEME_3DES_BASE64, "3DES_BASE64", Cipher::TripleDes, true},
    {VELDA_SCHEME_BLOWFISH_BASE64, "BLOWFISH_BASE64", Cipher::Blowfish, true},
    {VELDA_SCHEME_AES_CTR, "AES_CTR", Cipher::AesCtr, false},
    {VELDA_SCHEME_AES_CTR_BASE64, "AES_CTR_BASE64", Cipher::AesCtr, true},
};

char rotate_letter(char c) {
    const char base = c >= 'a' ? 'a' : 'A';
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return letter ? static_cast<char>(base + (c - base + 13) % 26) : c;
}

char flip_bits(char c) { return static_cast<char>(c ^ 11); }

std::string map_bytes(std::string_view text, char (*map)(char)) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), map);
    return result;
}

// The initial value that belongs to a plain text.
std::string initial_value_of(Cipher cipher, const KeyRing::Keys &keys, std::string_view text) {
    std::string value = message_code(keys.code_key, text);
    value.resize(cipher_sizes(cipher).initial_value);
    if (value[0] == 0) value[0] = 1;
    return value;
}

Result<std::string> encipher(const KeyRing::Keys &keys, Cipher cipher, std::string_view text) {
    std::string result = initial_value_of(cipher, keys, text);
    const auto body = run_cipher(cipher, Way::Encrypt, keys.cipher_key, result, text);
    if (!body) return body.error();
    return result.append(*body);
}

Result<std::string> decipher(const KeyRing::Keys &keys, Cipher cipher, std::string_view text) {
    const Error damaged{EBADMSG, "the text is not one of this scheme and key"};
    const CipherSizes sizes = cipher_sizes(cipher);
    if (text.size() < sizes.initial_value) return damaged;
    const std::string_view initial_value = text.substr(0, sizes.initial_value);
    auto plain = run_cipher(cipher, Way::Decrypt, keys.cipher_key, initial_value, text.substr(sizes.initial_value));
    if (plain && !same_secret(initial_value_of(cipher, keys, *plain), initial_value)) return damaged;
    return plain;
}

std::string_view phrase_or_default(std::string_view phrase) {
    return phrase.empty() ? builtin_key(VELDA_KEY_DEFAULT) : phrase;
}

}  // namespace

const Scheme *scheme_by_number(int number) {
    for (const Scheme &scheme : Schemes) {
        if (scheme.number == number) return &scheme;
    }
    return nullptr;
}

const Scheme *scheme_by_name(std::string_view name) {
    for (const Scheme &scheme : Schemes) {
        const std::string_view known = scheme.name;
        if (known.size() == name.size() && strncasecmp(known.data(), name.data(), name.size()) == 0) return &scheme;
    }
    return nullptr;
}

const char *builtin_key(int purpose) {
    for (const BuiltinKey &key : BuiltinKeys) {
        if (key.purpose == purpose) return key.text;
    }
    return nullptr;
}

KeyRing::~KeyRing() {
    for (Entry &entry : entries_) {
        for (std::string *secret : {&entry.phrase, &entry.keys.cipher_key, &entry.keys.code_key})
            OPENSSL_cleanse(secret->data(), secret->size());
    }
}

const KeyRing::Keys &KeyRing::find(Cipher cipher, std::string_view phrase) {
    const auto known = std::find_if(entries_.begin(), entries_.end(), [&](const Entry &entry) {
        return entry.cipher == cipher && entry.phrase == phrase;
    });
    if (known != entries_.end()) {
        std::rotate(entries_.begin(), known, known + 1);
        return entries_.front().keys;
    }
    constexpr int Iterations = 4096;
    constexpr std::size_t CodeKeySize = 32;
    const std::size_t key_size = cipher_sizes(cipher).key;
    const std::string salt = "cipher " + std::to_string(static_cast<int>(cipher));
    const std::string keys = stretch(phrase, salt, Iterations, key_size + CodeKeySize);
    if (entries_.size() == MaximumEntries) entries_.pop_back();
    entries_.insert(entries_.begin(), {cipher, std::string(phrase), {keys.substr(0, key_size), keys.substr(key_size)}});
    return entries_.front().keys;
}

Result<std::string> encrypt(KeyRing &ring, const Scheme &scheme, std::string_view phrase, std::string_view text) {
    Result<std::string> result = std::string();
    switch (scheme.cipher) {
        case Cipher::None:
            result = std::string(text);
            break;
        case Cipher::Rot13:
            result = map_bytes(text, rotate_letter);
            break;
        case Cipher::Xor11:
            result = map_bytes(text, flip_bits);
            break;
        default:
            result = encipher(ring.find(scheme.cipher, phrase_or_default(phrase)), scheme.cipher, text);
    }
    if (result && scheme.in_base64) return to_base64(*result);
    return result;
}

Result<std::string> decrypt(KeyRing &ring, const Scheme &scheme, std::string_view phrase, std::string_view text) {
    std::string decoded;
    if (scheme.in_base64) {
        auto bytes = from_base64(text);
        if (!bytes) return Error{EBADMSG, "the text is not base 64"};
        decoded = std::move(*bytes);
        text = decoded;
    }
    switch (scheme.cipher) {
        case Cipher::None:
            return decoded;
        case Cipher::Rot13:
            return map_bytes(text, rotate_letter);
        case Cipher::Xor11:
            return map_bytes(text, flip_bits);
        default:
            return decipher(ring.find(scheme.cipher, phrase_or_default(phrase)), scheme.cipher, text);
    }
}

std::string scramble(std::string_view password) {
    constexpr std::string_view Alphabet = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    constexpr std::size_t LongestResult = 43;
    constexpr int Iterations = 20000;
    if (password.empty()) return {};
    const std::size_t size = std::min(password.size() * 2 - 1, LongestResult);
    std::string result = stretch(password, ScrambleSalt, Iterations, size);
    for (char &c : result) c = Alphabet[static_cast<unsigned char>(c) & 63];
    return result;
}

}  // namespace velda::crypt
