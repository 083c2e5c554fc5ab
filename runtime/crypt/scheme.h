// scheme.h - the encryption schemes. Private to the runtime.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/crypt/cipher.h"

namespace velda::crypt {

struct Scheme {
    int number;
    const char *name;
    Cipher cipher;
    bool in_base64;
};

const Scheme *scheme_by_number(int number);
const Scheme *scheme_by_name(std::string_view name);  // in any case

// The system's own key for a purpose; null when there is none.
const char *builtin_key(int purpose);

// The keys that a session has stretched lately, since stretching is slow.
class KeyRing {
  public:
    struct Keys {
        std::string cipher_key;
        std::string code_key;  // for the initial value
    };
    ~KeyRing();
    // Valid until the next call.
    const Keys &find(Cipher cipher, std::string_view phrase);

  private:
    struct Entry {
        Cipher cipher;
        std::string phrase;
        Keys keys;
    };
    static constexpr std::size_t MaximumEntries = 8;
    std::vector<Entry> entries_;  // the one used last is in front
};

// An empty phrase stands for the system's default key. The errors are those of run_cipher.
Result<std::string> encrypt(KeyRing &ring, const Scheme &scheme, std::string_view phrase, std::string_view text);
Result<std::string> decrypt(KeyRing &ring, const Scheme &scheme, std::string_view phrase, std::string_view text);

// The scrambled form of a password: at most twice its length less one, printable, "" for "".
std::string scramble(std::string_view password);

}  // namespace velda::crypt
