// Every message key that the sources print has a text in the system's message file.
#include <gtest/gtest.h>
#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include "runtime/config/message.h"
#include "runtime/config/text_file.h"
#include "tests/support/scratch.h"

namespace {

namespace fs = std::filesystem;

// A key as the first text of a call that prints messages, or with a parameter joined to it.
const std::regex Uses[] = {
    std::regex(
        R"re(\b(?:stop|abort_command|print_message|fail_command)\((?:\w+, )?(?:\w+, )?"([A-Z0-9][A-Z0-9_-]*)")re"),
    std::regex(R"re(std::string\("([A-Z][A-Z0-9_]*)"\) \+ (?:velda::)?VM\b)re"),
};

std::set<std::string> keys_in(const fs::path &file) {
    std::set<std::string> keys;
    const auto source = velda::read_text_file(file.string());
    EXPECT_TRUE(source.ok());
    for (const std::regex &use : Uses) {
        for (std::sregex_iterator match(source->begin(), source->end(), use), end; match != end; ++match)
            keys.insert((*match)[1]);
    }
    return keys;
}

}  // namespace

TEST(MessageKeys, OfTheSourcesHaveTexts) {
    const velda::test::ScratchSystem system;
    std::set<std::string> seen;
    for (const char *folder : {"runtime", "frame", "fileutil", "commands"}) {
        for (const auto &entry : fs::recursive_directory_iterator(fs::path(VELDA_SOURCE_DIR) / folder)) {
            if (entry.path().extension() != ".cpp") continue;
            for (const std::string &key : keys_in(entry.path())) {
                seen.insert(key);
                EXPECT_NE(velda::format_message(nullptr, key), key) << "printed by " << entry.path();
            }
        }
    }
    // The patterns find what is known to be there.
    for (const char *known : {"SUBROUTINE_CALL_FAIL", "COMMAND_UNKNOWN", "INTERRUPTED"})
        EXPECT_TRUE(seen.contains(known)) << known;
}
