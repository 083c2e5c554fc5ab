#include "runtime/crypt/scheme.h"

#include <gtest/gtest.h>

#include <set>

#include "runtime/crypt/builtin_keys.h"
#include "tests/support/seed.h"

using namespace velda::crypt;

namespace {

const std::vector<std::string> AllNames = {
    "ROT13",      "XOR11",      "RC2",         "BASE64",          "DES",     "3DES",          "BLOWFISH",
    "RC2_BASE64", "DES_BASE64", "3DES_BASE64", "BLOWFISH_BASE64", "AES_CTR", "AES_CTR_BASE64"};

// The schemes that work under a key and so can tell damage.
std::vector<const Scheme *> keyed_schemes() {
    std::vector<const Scheme *> result;
    for (const std::string &name : AllNames) {
        const Scheme *scheme = scheme_by_name(name);
        if (cipher_sizes(scheme->cipher).key > 0) result.push_back(scheme);
    }
    return result;
}

class SchemeTest : public testing::Test {
  protected:
    std::string encrypted(const Scheme &scheme, std::string_view key, std::string_view text) {
        const auto result = encrypt(ring_, scheme, key, text);
        EXPECT_TRUE(result) << scheme.name;
        return result ? *result : "";
    }
    int decrypt_error(const Scheme &scheme, std::string_view key, std::string_view text) {
        const auto result = decrypt(ring_, scheme, key, text);
        return result ? 0 : result.error().number;
    }
    KeyRing ring_;
};

}  // namespace

TEST_F(SchemeTest, TheNumbersFollowTheOrderOfTheNames) {
    for (std::size_t at = 0; at < AllNames.size(); ++at) {
        const Scheme *scheme = scheme_by_name(AllNames[at]);
        ASSERT_NE(scheme, nullptr) << AllNames[at];
        EXPECT_EQ(scheme->number, static_cast<int>(at) + 1);
        EXPECT_EQ(scheme_by_number(scheme->number), scheme);
        EXPECT_EQ(scheme->name, AllNames[at]);
    }
}

TEST_F(SchemeTest, NumbersThatOtherPartsOfTheSystemKeepAreFixed) {
    EXPECT_STREQ(scheme_by_number(3)->name, "RC2");
    EXPECT_STREQ(scheme_by_number(4)->name, "BASE64");
    EXPECT_STREQ(scheme_by_number(6)->name, "3DES");
}

TEST_F(SchemeTest, NamesAreFoundInAnyCaseAndOnlyWhole) {
    EXPECT_EQ(scheme_by_name("aes_ctr"), scheme_by_number(12));
    for (const char *name : {"", "3DE", "3DESX", "AES", "NONE"}) EXPECT_EQ(scheme_by_name(name), nullptr) << name;
    for (const int number : {0, -1, 14, 1000}) EXPECT_EQ(scheme_by_number(number), nullptr) << number;
}

TEST_F(SchemeTest, EveryTextComesBackUnderEveryScheme) {
    std::mt19937_64 random = velda::test::seeded_random();
    const std::string every_byte = [] {
        std::string all;
        for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
        return all;
    }();
    for (const std::string &name : AllNames) {
        const Scheme &scheme = *scheme_by_name(name);
        std::vector<std::string> texts = {"", std::string(1, '\0'), "1234567", "12345678", "123456789", every_byte};
        for (int count = 0; count < 100; ++count) texts.push_back(velda::test::random_bytes(random, 200));
        for (const std::string &text : texts) {
            const auto back = decrypt(ring_, scheme, "key", encrypted(scheme, "key", text));
            ASSERT_TRUE(back) << name << " of " << text.size() << " bytes: " << back.error().message;
            ASSERT_EQ(*back, text) << name;
        }
    }
}

TEST_F(SchemeTest, ALargeTextComesBack) {
    std::string text(5'000'003, '\0');
    for (std::size_t at = 0; at < text.size(); ++at) text[at] = static_cast<char>(at * 31);
    for (const char *name : {"AES_CTR_BASE64", "3DES", "XOR11"}) {
        const Scheme &scheme = *scheme_by_name(name);
        const auto back = decrypt(ring_, scheme, "key", encrypted(scheme, "key", text));
        ASSERT_TRUE(back) << name;
        EXPECT_TRUE(*back == text) << name;
    }
}

TEST_F(SchemeTest, DisguisesAreWhatTheirNamesSay) {
    EXPECT_EQ(encrypted(*scheme_by_name("ROT13"), "", "Hello, Zoo 1\xFE"), "Uryyb, Mbb 1\xFE");
    EXPECT_EQ(encrypted(*scheme_by_name("XOR11"), "",
                        std::string_view("\x0B"
                                         "a\0",
                                         3)),
              std::string("\0j\x0B", 3));
    EXPECT_EQ(encrypted(*scheme_by_name("BASE64"), "ignored", "foob"), "Zm9vYg==");
}

TEST_F(SchemeTest, ABase64SchemeIsItsCipherInBase64) {
    for (const char *name : {"RC2", "DES", "3DES", "BLOWFISH", "AES_CTR"}) {
        const Scheme &binary = *scheme_by_name(name);
        const Scheme &armoured = *scheme_by_name(std::string(name) + "_BASE64");
        const Scheme &base64 = *scheme_by_name("BASE64");
        const std::string text = encrypted(armoured, "key", "some text");
        const auto inner = decrypt(ring_, base64, "", text);
        ASSERT_TRUE(inner);
        EXPECT_EQ(*inner, encrypted(binary, "key", "some text")) << name;
        EXPECT_EQ(text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/="),
                  std::string::npos);
    }
}

TEST_F(SchemeTest, AnotherKeyDoesNotOpenAText) {
    for (const Scheme *scheme : keyed_schemes()) {
        const std::string text = encrypted(*scheme, "right", "the text");
        for (const char *key : {"wrong", "right ", "Right", ""})
            EXPECT_EQ(decrypt_error(*scheme, key, text), EBADMSG) << scheme->name << " " << key;
    }
}

TEST_F(SchemeTest, EveryFlippedBitIsNoticed) {
    for (const Scheme *scheme : keyed_schemes()) {
        const std::string text = encrypted(*scheme, "key", "a text of two blocks");
        for (std::size_t bit = 0; bit < text.size() * 8; ++bit) {
            std::string damaged = text;
            damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
            ASSERT_EQ(decrypt_error(*scheme, "key", damaged), EBADMSG) << scheme->name << " bit " << bit;
        }
    }
}

TEST_F(SchemeTest, EveryCutAndLengthenedTextIsNoticed) {
    for (const Scheme *scheme : keyed_schemes()) {
        const std::string text = encrypted(*scheme, "key", "a text of two blocks");
        for (std::size_t size = 0; size < text.size(); ++size)
            ASSERT_EQ(decrypt_error(*scheme, "key", text.substr(0, size)), EBADMSG) << scheme->name << " " << size;
        ASSERT_EQ(decrypt_error(*scheme, "key", text + "A"), EBADMSG) << scheme->name;
        ASSERT_EQ(decrypt_error(*scheme, "key", text + text), EBADMSG) << scheme->name;
    }
}

TEST_F(SchemeTest, RandomBytesNeverOpen) {
    std::mt19937_64 random = velda::test::seeded_random();
    for (const Scheme *scheme : keyed_schemes()) {
        for (int count = 0; count < 200; ++count)
            ASSERT_EQ(decrypt_error(*scheme, "key", velda::test::random_bytes(random, 100)), EBADMSG) << scheme->name;
    }
    EXPECT_EQ(decrypt_error(*scheme_by_name("BASE64"), "", "no base 64"), EBADMSG);
}

TEST_F(SchemeTest, TheSameTextGivesTheSameResultAndAnotherAnother) {
    for (const Scheme *scheme : keyed_schemes()) {
        EXPECT_EQ(encrypted(*scheme, "key", "text"), encrypted(*scheme, "key", "text"));
        std::set<std::string> results;
        for (int count = 0; count < 200; ++count) results.insert(encrypted(*scheme, "key", std::to_string(count)));
        EXPECT_EQ(results.size(), 200u) << scheme->name;
    }
}

// A field that holds a password as cipher text takes a first byte of zero for "no password".
TEST_F(SchemeTest, ACipherTextNeverBeginsWithZero) {
    const Scheme &scheme = *scheme_by_name("RC2");
    for (int count = 0; count < 3000; ++count)
        ASSERT_NE(encrypted(scheme, "key", std::to_string(count))[0], '\0') << count;
}

TEST_F(SchemeTest, APasswordOf23BytesFitsAFieldOf32) {
    EXPECT_EQ(encrypted(*scheme_by_name("RC2"), "key", std::string(23, 'x')).size(), 32u);
}

TEST_F(SchemeTest, AnEmptyKeyIsTheDefaultKey) {
    for (const Scheme *scheme : keyed_schemes())
        EXPECT_EQ(encrypted(*scheme, "", "text"), encrypted(*scheme, builtin_key(VELDA_KEY_DEFAULT), "text"));
}

TEST_F(SchemeTest, KeysOfAnyLengthAndBytesWork) {
    const Scheme &scheme = *scheme_by_name("3DES");
    for (const std::string &key : {std::string(3, '\0'), std::string(100'000, 'k'), std::string(3'000'000, 'k')}) {
        EXPECT_EQ(decrypt_error(scheme, key, encrypted(scheme, key, "text")), 0);
        EXPECT_EQ(decrypt_error(scheme, key + "x", encrypted(scheme, key, "text")), EBADMSG);
    }
}

TEST_F(SchemeTest, AForgottenKeyIsStretchedAgain) {
    const Scheme &scheme = *scheme_by_name("BLOWFISH");
    const std::string first = encrypted(scheme, "key 0", "text");
    for (int count = 1; count < 20; ++count) encrypted(scheme, "key " + std::to_string(count), "text");
    EXPECT_EQ(encrypted(scheme, "key 0", "text"), first);
}

TEST_F(SchemeTest, EveryPurposeHasAKeyOfItsOwn) {
    std::set<std::string> keys;
    for (const BuiltinKey &key : BuiltinKeys) {
        ASSERT_EQ(builtin_key(key.purpose), key.text);
        keys.insert(key.text);
    }
    EXPECT_EQ(keys.size(), std::size(BuiltinKeys));
    EXPECT_EQ(builtin_key(-1), nullptr);
    EXPECT_EQ(builtin_key(VELDA_KEY_BACKGROUND_PASSWORD + 1), nullptr);
}

TEST(Scramble, TheResultFitsItsRoomAndIsPrintable) {
    for (std::size_t size = 1; size < 60; ++size) {
        const std::string result = scramble(std::string(size, 'p'));
        EXPECT_FALSE(result.empty());
        EXPECT_LT(result.size(), 2 * size);
        for (const char c : result) EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '/');
    }
    EXPECT_EQ(scramble(""), "");
}

TEST(Scramble, ItIsRepeatableAndDoesNotShowThePassword) {
    EXPECT_EQ(scramble("open sesame"), scramble("open sesame"));
    EXPECT_NE(scramble("open sesame"), scramble("open sesamf"));
    EXPECT_NE(scramble("open sesame"), scramble("Open sesame"));
    EXPECT_EQ(scramble("open sesame").find("open"), std::string::npos);
    EXPECT_NE(scramble(std::string(100, 'a')), scramble(std::string(100, 'a') + "b"));
}

namespace {

// Runs in a process of its own, before libcrypto was asked for any cipher. The exit code tells what failed.
[[noreturn]] void work_without_the_legacy_provider() {
    setenv("OPENSSL_MODULES", "/nonexistent", 1);
    KeyRing ring;
    for (const char *name : {"RC2", "DES", "BLOWFISH_BASE64"}) {
        const auto result = encrypt(ring, *scheme_by_name(name), "key", "text");
        if (result || result.error().number != ENOTSUP) std::exit(1);
        std::fprintf(stderr, "%s: %s\n", name, result.error().message.c_str());
    }
    for (const char *name : {"3DES", "AES_CTR", "BASE64", "ROT13"}) {
        if (!encrypt(ring, *scheme_by_name(name), "key", "text")) std::exit(2);
    }
    std::exit(0);
}

}  // namespace

TEST(SchemeDeathTest, WithoutTheLegacyProviderItsCiphersAreNamedAndTheOthersWork) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(work_without_the_legacy_provider(), testing::ExitedWithCode(0),
                "RC2: the cipher library has no 'RC2-CBC'; install its provider of legacy ciphers");
}
