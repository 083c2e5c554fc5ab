// Names and small formats of the store: file names, the directory driver's names, its control file, settings.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "runtime/store/directory_control.h"
#include "runtime/store/directory_name.h"
#include "runtime/store/driver.h"
#include "runtime/store/hashed_format.h"
#include "runtime/store/setting_words.h"
#include "runtime/store/settings_text.h"

namespace {

using namespace velda::store;

void must(bool holds) {
    if (!holds) std::abort();
}

void names_and_keys(std::string_view text) {
    const std::string name = encode_name(text);
    must(name.find('/') == name.npos && name.find('\0') == name.npos && !name.empty());
    must(decode_name(name) == std::string(text));
    if (text.empty() || text.find('/') != text.npos || text.find('\0') != text.npos) return;
    if (const auto key = decode_name(text)) must(encode_name(*key) == text);
}

void file_names(std::string_view text) {
    for (const bool dictionary : {false, true}) {
        const auto parsed = parse_file_name(text, dictionary);
        must(!parsed || (!parsed->path.empty() && parsed->path.find('\0') == std::string::npos));
    }
}

void settings(std::string_view text) {
    const FileSettings parsed = parse_settings_text(text, Durability::Sync);
    must(parse_settings_text(settings_text(parsed), Durability::Sync).options.size() == parsed.options.size());
    WantedFile wanted;
    (void)is_setting_word(text);
    (void)take_setting_word(wanted, text);
}

void control_file(std::string_view text) {
    ControlBlocks blocks;
    (void)parse_control_blocks(text, blocks);
}

void long_data(std::string_view text) {
    LongData parts;
    if (parse_long_data(text, parts)) must(parts.key.size() + parts.record.size() + LongHeadBytes == text.size());
}

constexpr void (*Targets[])(std::string_view) = {names_and_keys, file_names, settings, control_file, long_data};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    Targets[data[0] % std::size(Targets)]({reinterpret_cast<const char *>(data) + 1, size - 1});
    return 0;
}
