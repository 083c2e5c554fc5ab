#include "runtime/store/setting_words.h"

#include <algorithm>
#include <cerrno>

namespace velda::store {
namespace {

constexpr char NotJournalledOption[] = "-L";

std::string in_upper_case(std::string_view text) {
    std::string upper(text);
    for (char &byte : upper) {
        if (byte >= 'a' && byte <= 'z') byte = static_cast<char>(byte - 'a' + 'A');
    }
    return upper;
}

Error wants(std::string_view wish, std::string_view value) {
    return {EINVAL, std::string(wish) + ", not '" + std::string(value) + "'"};
}

Result<void> set_permissions(WantedFile &wanted, std::string_view value) {
    constexpr int AllModeBits = 07777;
    int mode = 0;
    for (const char digit : value) {
        if (digit < '0' || digit > '7') return wants("PERMS wants octal digits", value);
        mode = mode * 8 + (digit - '0');
        if (mode > AllModeBits) break;
    }
    if (value.empty() || mode > AllModeBits) return wants("PERMS wants octal digits up to 7777", value);
    wanted.settings.permissions = mode;
    return {};
}

Result<void> set_logging(WantedFile &wanted, std::string_view value) {
    const std::string word = in_upper_case(value);
    if (word != "YES" && word != "NO") return wants("LOG wants YES or NO", value);
    wanted.settings.journalled = word == "YES";
    return {};
}

Result<void> set_type(WantedFile &wanted, std::string_view value) {
    const std::string word = in_upper_case(value);
    if (word != "UD" && word != "HL") return wants("TYPE wants UD (directory) or HL (hashed)", value);
    wanted.type = word;
    return {};
}

Result<void> set_durability(WantedFile &wanted, std::string_view value) {
    const std::string word = in_upper_case(value);
    if (word != "SYNC" && word != "LAZY") return wants("DURABILITY wants SYNC or LAZY", value);
    wanted.settings.durability = word == "LAZY" ? Durability::Lazy : Durability::Sync;
    return {};
}

struct Setting {
    std::string_view prefix;
    Result<void> (*set)(WantedFile &wanted, std::string_view value);
};

constexpr Setting Settings[] = {
    {"PERMS=", set_permissions},
    {"LOG=", set_logging},
    {"TYPE=", set_type},
    {"DURABILITY=", set_durability},
};

// "-L" sets an option, "+L" takes it back.
Result<void> take_option(WantedFile &wanted, const std::string &upper) {
    const std::string option = "-" + upper.substr(1);
    if (option != "-B" && option != "-L" && option != "-T") return Error{EINVAL, "unknown option '" + upper + "'"};
    const bool set = upper.front() == '-';
    std::erase(wanted.settings.options, option);
    if (set) wanted.settings.options.push_back(option);
    if (option == NotJournalledOption) wanted.settings.journalled = !set;
    return {};
}

}  // namespace

bool is_setting_word(std::string_view word) {
    if (word.starts_with('-') || word.starts_with('+')) return true;
    const std::string upper = in_upper_case(word);
    return std::any_of(std::begin(Settings), std::end(Settings),
                       [&](const Setting &setting) { return upper.starts_with(setting.prefix); });
}

Result<void> take_setting_word(WantedFile &wanted, std::string_view word) {
    const std::string upper = in_upper_case(word);
    for (const Setting &setting : Settings)
        if (upper.starts_with(setting.prefix)) return setting.set(wanted, word.substr(setting.prefix.size()));
    if (word.starts_with('-') || word.starts_with('+')) return take_option(wanted, upper);
    return Error{EINVAL, "unknown word '" + std::string(word) + "'"};
}

}  // namespace velda::store
