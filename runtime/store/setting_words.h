// setting_words.h - a file's settings as a person writes them: the words of CREATE-FILE.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "runtime/store/driver.h"

namespace velda::store {

// What the words of one command ask for.
struct WantedFile {
    std::optional<std::string> type;  // "HL", "UD"
    FileSettings settings;
};

// True when the word has the form of a setting (TYPE=, PERMS=, LOG=, DURABILITY=) or of an option (-B, +B). Case does
// not matter.
bool is_setting_word(std::string_view word);

// Takes one such word. Error 22 names the word and what it should be.
Result<void> take_setting_word(WantedFile &wanted, std::string_view word);

}  // namespace velda::store
