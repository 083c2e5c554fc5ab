#include "runtime/store/settings_text.h"

#include <charconv>
#include <cstdio>

#include "runtime/vdefc.h"

namespace velda::store {
namespace {

constexpr std::string_view NotJournalledWord = "LOG=NO";
constexpr std::string_view PermissionsWord = "PERMS=";

}  // namespace

std::string settings_text(const FileSettings &settings) {
    char octal[16];
    std::snprintf(octal, sizeof octal, "0%o", static_cast<unsigned>(settings.permissions) & 07777);
    std::string text = std::string(PermissionsWord) + octal;
    if (!settings.journalled) text.append(1, AM).append(NotJournalledWord);
    for (const auto &option : settings.options) text.append(1, AM).append(option);
    return text;
}

FileSettings parse_settings_text(std::string_view text, Durability durability) {
    FileSettings settings;
    settings.durability = durability;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(AM));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        if (word == NotJournalledWord)
            settings.journalled = false;
        else if (word.starts_with(PermissionsWord))
            std::from_chars(word.data() + PermissionsWord.size(), word.data() + word.size(), settings.permissions, 8);
        else if (!word.empty())
            settings.options.emplace_back(word);
    }
    return settings;
}

}  // namespace velda::store
