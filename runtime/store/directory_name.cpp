#include "runtime/store/directory_name.h"

#include <cstdio>

#include "runtime/store/hash.h"
#include "runtime/store/path.h"

namespace velda::store {
namespace {

struct ByteCode {
    char byte;
    std::string_view digits;
};
constexpr ByteCode ByteCodes[] = {{'/', "2F"}, {'\0', "00"}};

constexpr std::string_view EscapedPercent = "25";

std::string_view skip_escaped_percents(std::string_view text) {
    while (text.starts_with(EscapedPercent)) text.remove_prefix(EscapedPercent.size());
    return text;
}

// True when the text behind a "%" would be read as a code: any number of "25" and then the digits of a byte.
bool reads_as_byte_code(std::string_view behind) {
    behind = skip_escaped_percents(behind);
    for (const auto &code : ByteCodes)
        if (behind.starts_with(code.digits)) return true;
    return false;
}

// True when a whole name "%" + `behind` stands, or would stand without its "25"s, for a key that is special as a whole.
bool reads_as_whole_code(std::string_view behind) {
    behind = skip_escaped_percents(behind);
    if (behind == "_") return true;
    if (!behind.starts_with("2E")) return false;
    behind.remove_prefix(2);
    return behind.empty() || behind == "." || behind.starts_with(HiddenPrefix.substr(1));
}

}  // namespace

std::string encode_name(std::string_view key) {
    if (key.empty()) return "%_";
    std::string name;
    name.reserve(key.size());
    if (key == "." || key == ".." || key.starts_with(HiddenPrefix)) {
        name = "%2E";
        key.remove_prefix(1);
    } else if (key.front() == '%' && reads_as_whole_code(key.substr(1))) {
        name.append("%").append(EscapedPercent);
        key.remove_prefix(1);
    }
    for (std::size_t i = 0; i < key.size(); ++i) {
        if (key[i] == '/')
            name.append("%2F");
        else if (key[i] == '\0')
            name.append("%00");
        else if (key[i] == '%' && reads_as_byte_code(key.substr(i + 1)))
            name.append("%").append(EscapedPercent);
        else
            name.push_back(key[i]);
    }
    return name;
}

std::optional<std::string> decode_name(std::string_view name) {
    if (name == "." || name == ".." || name.starts_with(HiddenPrefix)) return std::nullopt;
    if (name == "%_") return "";
    std::string key;
    key.reserve(name.size());
    if (name.front() == '%' && reads_as_whole_code(name.substr(1))) {
        if (name.substr(1).starts_with(EscapedPercent)) {
            key = "%";
        } else {
            key = ".";
        }
        name.remove_prefix(3);
    }
    while (!name.empty()) {
        const char byte = name.front();
        name.remove_prefix(1);
        if (byte != '%' || !reads_as_byte_code(name)) {
            key.push_back(byte);
            continue;
        }
        char meant = '%';
        for (const auto &code : ByteCodes)
            if (name.starts_with(code.digits)) meant = code.byte;
        key.push_back(meant);
        name.remove_prefix(2);
    }
    return key;
}

std::string long_name_family(std::string_view key) {
    char digits[24];
    std::snprintf(digits, sizeof digits, "%016llx-", static_cast<unsigned long long>(long_key_hash(key)));
    return std::string(LongPrefix) + digits;
}

}  // namespace velda::store
