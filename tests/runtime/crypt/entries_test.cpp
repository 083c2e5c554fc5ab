// The entries, on cells.
#include <gtest/gtest.h>

#include <cstring>

#include "runtime/crypt/facade.h"
#include "runtime/process/context.h"

using namespace velda;

namespace {

class CryptEntries : public testing::Test {
  protected:
    DP *dp = velda_getdp();
    VAR target;
    const VAR text = std::string_view("text\0with \xFE marks", 17);
    const VAR key = "key";
};

}  // namespace

TEST_F(CryptEntries, ATextComesBackUnderEveryScheme) {
    for (int method = VELDA_SCHEME_ROT13; method <= VELDA_SCHEME_AES_CTR_BASE64; ++method) {
        VAR cipher_text;
        EXPECT_EQ(VLibEENCRYPT_BBBBI(dp, &cipher_text, &text, &key, method), &cipher_text);
        EXPECT_EQ(dp->last_error, VELDA_CRYPT_DONE);
        EXPECT_NE(cipher_text.view(), text.view()) << method;
        EXPECT_EQ(VLibEDECRYPT_BBBBI(dp, &target, &cipher_text, &key, method), &target);
        EXPECT_EQ(dp->last_error, VELDA_CRYPT_DONE);
        EXPECT_EQ(target.view(), text.view()) << method;
    }
}

TEST_F(CryptEntries, TheTargetMayBeTheSource) {
    VAR cell = "secret";
    VLibEENCRYPT_BBBBI(dp, &cell, &cell, &key, VELDA_SCHEME_RC2);
    EXPECT_NE(cell.view(), "secret");
    VLibEDECRYPT_BBBBI(dp, &cell, &cell, &key, VELDA_SCHEME_RC2);
    EXPECT_EQ(cell.view(), "secret");
}

TEST_F(CryptEntries, ANullAndAnEmptyKeyAreTheDefaultKey) {
    const VAR empty = "";
    VLibEENCRYPT_BBBBI(dp, &target, &text, nullptr, VELDA_SCHEME_3DES);
    VLibEDECRYPT_BBBBI(dp, &target, &target, &empty, VELDA_SCHEME_3DES);
    EXPECT_EQ(target.view(), text.view());
}

TEST_F(CryptEntries, AnUnknownSchemeGivesTheEmptyTextAndACode) {
    for (const int method : {0, -1, 14}) {
        target = "before";
        VLibEENCRYPT_BBBBI(dp, &target, &text, &key, method);
        EXPECT_EQ(target.view(), "");
        EXPECT_EQ(dp->last_error, VELDA_CRYPT_BAD_SCHEME);
        target = "before";
        dp->last_error = 0;
        VLibEDECRYPT_BBBBI(dp, &target, &text, &key, method);
        EXPECT_EQ(target.view(), "");
        EXPECT_EQ(dp->last_error, VELDA_CRYPT_BAD_SCHEME);
        EXPECT_EQ(velda_crypt_error(dp), "there is no encryption scheme " + std::to_string(method));
    }
}

TEST_F(CryptEntries, ADamagedTextGivesTheEmptyTextAndACode) {
    VLibEENCRYPT_BBBBI(dp, &target, &text, &key, VELDA_SCHEME_AES_CTR);
    std::string damaged = target.str();
    damaged.back() = static_cast<char>(damaged.back() ^ 1);
    const VAR source = damaged;
    target = "before";
    VLibEDECRYPT_BBBBI(dp, &target, &source, &key, VELDA_SCHEME_AES_CTR);
    EXPECT_EQ(target.view(), "");
    EXPECT_EQ(dp->last_error, VELDA_CRYPT_DAMAGED);
    EXPECT_STREQ(velda_crypt_error(dp), "the text is not one of this scheme and key");
    VLibEENCRYPT_BBBBI(dp, &target, &text, &key, VELDA_SCHEME_AES_CTR);
    EXPECT_STREQ(velda_crypt_error(dp), "");
}

TEST_F(CryptEntries, SchemesAreFoundByNameAndByNumber) {
    EXPECT_EQ(velda_scheme_number(dp, "3DES"), VELDA_SCHEME_3DES);
    EXPECT_EQ(velda_scheme_number(dp, "no such"), 0);
    EXPECT_STREQ(velda_scheme_name(dp, VELDA_SCHEME_AES_CTR_BASE64), "AES_CTR_BASE64");
    EXPECT_EQ(velda_scheme_name(dp, 0), nullptr);
    EXPECT_NE(velda_builtin_key(dp, VELDA_KEY_TRANSFER), nullptr);
    EXPECT_EQ(velda_builtin_key(dp, 99), nullptr);
}

TEST_F(CryptEntries, AScrambledTextStaysInTwiceTheRoom) {
    for (const char *password : {"", "a", "ab", "secret", "a password that is rather longer than most"}) {
        const std::size_t room = std::max<std::size_t>(std::strlen(password) * 2, 1);
        std::string target_bytes(room + 1, '#');
        VediCrypt(dp, password, target_bytes.data());
        EXPECT_EQ(target_bytes[room], '#');
        ASSERT_LT(target_bytes.find('\0'), room);
        const VAR source = password;
        VELDACrypt(dp, &target, &source);
        EXPECT_EQ(target.view(), target_bytes.c_str());
    }
}

TEST_F(CryptEntries, ACellIsScrambledWholeAlsoBehindAZeroByte) {
    const VAR short_text = "ab";
    const VAR long_text = std::string_view("ab\0c", 4);
    EXPECT_NE(scramble(short_text).view(), scramble(long_text).view());
    VAR cell = "secret";
    VELDACrypt(dp, &cell, &cell);
    EXPECT_EQ(cell.view(), scramble("secret").view());
}

TEST_F(CryptEntries, TheWordsDoTheSame) {
    EXPECT_EQ(decrypt(encrypt("text", "key", VELDA_SCHEME_3DES_BASE64), "key", VELDA_SCHEME_3DES_BASE64).view(),
              "text");
}
