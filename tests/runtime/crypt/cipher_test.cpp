// The block ciphers against published vectors, and base 64 against its standard.
#include "runtime/crypt/cipher.h"

#include <gtest/gtest.h>

#include "runtime/crypt/base64.h"
#include "tests/support/seed.h"

using namespace velda::crypt;

namespace {

std::string bytes(std::string_view hex) {
    std::string result;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2)
        result += static_cast<char>(std::stoi(std::string(hex.substr(at, 2)), nullptr, 16));
    return result;
}

std::string hex(std::string_view text) {
    std::string result;
    char digits[3];
    for (const char c : text) {
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        result += digits;
    }
    return result;
}

constexpr std::string_view NoInitialValue = "0000000000000000";

struct Vector {
    const char *source;
    Cipher cipher;
    std::string_view key, initial_value, plain;
    std::string_view ciphertext;  // without the block of padding
};

const Vector Vectors[] = {
    {"RFC 2268, section 5", Cipher::Rc2, "88bca90e90875a7f0f79c384627bafb2", NoInitialValue, "0000000000000000",
     "2269552ab0f85ca6"},
    {"FIPS 81, table C1, CBC", Cipher::Des, "0123456789abcdef", "1234567890abcdef",
     "4e6f77206973207468652074696d6520666f7220616c6c20", "e5c7cdde872bf27c43e934008c389c0f683788499a7c05f6"},
    {"SP 800-67, appendix B, block 1", Cipher::TripleDes, "0123456789abcdef23456789abcdef01456789abcdef0123",
     NoInitialValue, "5468652071756663", "a826fd8ce53b855f"},
    {"SP 800-67, appendix B, block 2", Cipher::TripleDes, "0123456789abcdef23456789abcdef01456789abcdef0123",
     NoInitialValue, "6b2062726f776e20", "cce21c8112256fe6"},
    {"SP 800-67, appendix B, block 3", Cipher::TripleDes, "0123456789abcdef23456789abcdef01456789abcdef0123",
     NoInitialValue, "666f78206a756d70", "68d5c05dd9b6b900"},
    {"Blowfish reference vectors, CBC, all but the zero-filled block", Cipher::Blowfish,
     "0123456789abcdeff0e1d2c3b4a59687", "fedcba9876543210", "37363534333231204e6f77206973207468652074696d6520",
     "6b77b4d63006dee605b156e27403979358deb9e7154616d9"},
    {"SP 800-38A, F.5.5", Cipher::AesCtr, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
     "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff", "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51",
     "601ec313775789a5b7a7f504bbf3d228f443e3ca4d62b59aca84e990cacaf5c5"},
};

}  // namespace

TEST(Cipher, CiphersAgreeWithPublishedVectors) {
    for (const Vector &v : Vectors) {
        const auto result = run_cipher(v.cipher, Way::Encrypt, bytes(v.key), bytes(v.initial_value), bytes(v.plain));
        ASSERT_TRUE(result) << v.source << ": " << result.error().message;
        EXPECT_EQ(hex(*result).substr(0, v.ciphertext.size()), v.ciphertext) << v.source;
        const auto plain = run_cipher(v.cipher, Way::Decrypt, bytes(v.key), bytes(v.initial_value), *result);
        ASSERT_TRUE(plain) << v.source;
        EXPECT_EQ(hex(*plain), v.plain) << v.source;
    }
}

TEST(Cipher, WrongPaddingIsDamage) {
    const std::string key(8, 'k');
    const std::string initial_value(8, 'i');
    for (const std::string_view text : {"", "1234567", "123456789"}) {
        const auto result = run_cipher(Cipher::Des, Way::Decrypt, key, initial_value, text);
        ASSERT_FALSE(result) << text;
        EXPECT_EQ(result.error().number, EBADMSG);
    }
}

TEST(Cipher, AMessageCodeIsHmacSha256) {  // RFC 4231, case 2
    EXPECT_EQ(hex(message_code("Jefe", "what do ya want for nothing?")),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

TEST(Cipher, StretchingIsPbkdf2) {  // RFC 7914, section 11
    EXPECT_EQ(hex(stretch("passwd", "salt", 1, 64)),
              "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
              "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783");
}

TEST(Base64, ItIsThatOfTheStandard) {  // RFC 4648, section 10
    const std::pair<const char *, const char *> rows[] = {{"", ""},
                                                          {"f", "Zg=="},
                                                          {"fo", "Zm8="},
                                                          {"foo", "Zm9v"},
                                                          {"foob", "Zm9vYg=="},
                                                          {"fooba", "Zm9vYmE="},
                                                          {"foobar", "Zm9vYmFy"}};
    for (const auto &[plain, text] : rows) {
        EXPECT_EQ(to_base64(plain), text);
        EXPECT_EQ(from_base64(text), plain);
    }
}

TEST(Base64, EveryTextComesBack) {
    std::mt19937_64 random = velda::test::seeded_random();
    for (int count = 0; count < 3000; ++count) {
        const std::string text = velda::test::random_bytes(random, 50);
        ASSERT_EQ(from_base64(to_base64(text)), text);
    }
}

TEST(Base64, WhatTheEncoderNeverWritesIsRefused) {
    for (const char *text :
         {"Z", "Zg", "Zg=", "Zg===", "====", "=", "Zm9=", "Zh==", "Zg==Zg==", "Z g=", "Zm9v\n", "Zm9*", "Z===", "=Zm9"})
        EXPECT_FALSE(from_base64(text)) << text;
}
