#include "runtime/crypt/cipher.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>
#include <openssl/provider.h>

#include <cassert>
#include <cerrno>
#include <memory>

namespace velda::crypt {
namespace {

struct CipherRow {
    Cipher cipher;
    const char *name;  // libcrypto's
    CipherSizes sizes;
};
constexpr CipherRow CipherRows[] = {
    {Cipher::Rc2, "RC2-CBC", {16, 8, 8}},
    {Cipher::Des, "DES-CBC", {8, 8, 8}},
    {Cipher::TripleDes, "DES-EDE3-CBC", {24, 8, 8}},
    {Cipher::Blowfish, "BF-CBC", {16, 8, 8}},
    {Cipher::AesCtr, "AES-256-CTR", {32, 16, 1}},
};
constexpr std::size_t CipherCount = std::size(CipherRows);

const CipherRow *row_of(Cipher cipher) {
    for (const CipherRow &row : CipherRows) {
        if (row.cipher == cipher) return &row;
    }
    return nullptr;
}

// The ciphers, fetched once. They live in a library context of their own, so that the old ciphers of the legacy
// provider do not appear in the process at large. Nothing here is freed: a session may still encipher while the process
// ends.
class CipherLibrary {
  public:
    static const CipherLibrary &instance() {
        static const CipherLibrary library;
        return library;
    }
    // Null when libcrypto lacks the cipher.
    const EVP_CIPHER *find(Cipher cipher) const {
        for (std::size_t at = 0; at < CipherCount; ++at) {
            if (CipherRows[at].cipher == cipher) return ciphers_[at];
        }
        return nullptr;
    }

  private:
    CipherLibrary() {
        OSSL_LIB_CTX *context = OSSL_LIB_CTX_new();
        if (!context) return;
        // A provider that is missing shows by the ciphers that it lacks.
        OSSL_PROVIDER_load(context, "default");
        OSSL_PROVIDER_load(context, "legacy");
        for (std::size_t at = 0; at < CipherCount; ++at)
            ciphers_[at] = EVP_CIPHER_fetch(context, CipherRows[at].name, nullptr);
    }
    EVP_CIPHER *ciphers_[CipherCount] = {};
};

struct FreeContext {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, FreeContext>;

const unsigned char *bytes_of(std::string_view text) { return reinterpret_cast<const unsigned char *>(text.data()); }
unsigned char *bytes_of(std::string &text) { return reinterpret_cast<unsigned char *>(text.data()); }

Error damaged() { return {EBADMSG, "the text is not one of this scheme and key"}; }

// Feeds the text in pieces, since libcrypto counts in int; returns the bytes written, or less than 0.
std::ptrdiff_t feed(EVP_CIPHER_CTX *context, std::string_view text, std::string &result) {
    constexpr std::size_t PieceSize = std::size_t{1} << 30;
    std::size_t written = 0;
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, PieceSize);
        int count = 0;
        if (!EVP_CipherUpdate(context, bytes_of(result) + written, &count, bytes_of(piece),
                              static_cast<int>(piece.size())))
            return -1;
        written += static_cast<std::size_t>(count);
        text.remove_prefix(piece.size());
    }
    int count = 0;
    if (!EVP_CipherFinal_ex(context, bytes_of(result) + written, &count)) return -1;
    return static_cast<std::ptrdiff_t>(written) + count;
}

}  // namespace

CipherSizes cipher_sizes(Cipher cipher) {
    const CipherRow *row = row_of(cipher);
    return row ? row->sizes : CipherSizes{};
}

Result<std::string> run_cipher(Cipher cipher, Way way, std::string_view key, std::string_view initial_value,
                               std::string_view text) {
    const CipherRow &row = *row_of(cipher);
    assert(key.size() == row.sizes.key && initial_value.size() == row.sizes.initial_value);
    const EVP_CIPHER *evp = CipherLibrary::instance().find(cipher);
    if (!evp)
        return Error{ENOTSUP, std::string("the cipher library has no '") + row.name +
                                  "'; install its provider of legacy ciphers"};
    const CipherContext context(EVP_CIPHER_CTX_new());
    const int encrypting = way == Way::Encrypt ? 1 : 0;
    if (!context ||
        !EVP_CipherInit_ex2(context.get(), evp, bytes_of(key), bytes_of(initial_value), encrypting, nullptr))
        return Error{ENOTSUP, std::string("the cipher library refuses '") + row.name + "'"};
    std::string result(text.size() + row.sizes.block, '\0');
    const std::ptrdiff_t size = feed(context.get(), text, result);
    if (size < 0) return damaged();
    result.resize(static_cast<std::size_t>(size));
    return result;
}

std::string stretch(std::string_view phrase, std::string_view salt, int iterations, std::size_t size) {
    // libcrypto counts in int; a phrase beyond all sense is replaced by its digest.
    constexpr std::size_t LongestPhrase = std::size_t{1} << 20;
    if (phrase.size() > LongestPhrase) return stretch(message_code(salt, phrase), salt, iterations, size);
    std::string result(size, '\0');
    [[maybe_unused]] const int done =
        PKCS5_PBKDF2_HMAC(phrase.data(), static_cast<int>(phrase.size()), bytes_of(salt), static_cast<int>(salt.size()),
                          iterations, EVP_sha256(), static_cast<int>(size), bytes_of(result));
    assert(done == 1);
    return result;
}

std::string message_code(std::string_view key, std::string_view text) {
    std::string code(EVP_MAX_MD_SIZE, '\0');
    unsigned int size = 0;
    [[maybe_unused]] const unsigned char *done = HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
                                                      bytes_of(text), text.size(), bytes_of(code), &size);
    assert(done);
    code.resize(size);
    return code;
}

bool same_secret(std::string_view a, std::string_view b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace velda::crypt
