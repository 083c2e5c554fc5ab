// Texts that the system's users and sites write: messages, emulation sections, command lines.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "runtime/config/emulation_section.h"
#include "runtime/config/message.h"
#include "runtime/process/command_level.h"
#include "runtime/process/external_command.h"
#include "runtime/vdefc.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// Words hold no dividers, and dividing them again changes nothing.
void check_command_words(std::string_view sentence) {
    const std::string words = velda::command_words(sentence);
    require(velda::command_words(words) == words);
    if (sentence.find(velda::AM) == std::string_view::npos) require(words.find(' ') == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t half = size / 2;
    // A text without places for parameters can only shrink.
    const std::string expanded = velda::expand_message(input.substr(0, half), input.substr(half));
    if (input.substr(0, half).find('%') == std::string_view::npos) require(expanded.size() <= half);

    if (const auto settings = velda::emulation_section(input, "a"))
        for (const auto &[name, value] : *settings)
            require(name.find('\n') == std::string::npos && value.find('\n') == std::string::npos);

    check_command_words(input);
    for (const std::string &word : velda::program_words(input)) require(word.size() <= size);
    return 0;
}
