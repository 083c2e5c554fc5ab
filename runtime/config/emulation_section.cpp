#include "runtime/config/emulation_section.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <vector>

#include "runtime/config/text_file.h"

namespace velda {
namespace {

constexpr int DeepestDuplicate = 64;

std::string upper(std::string_view text) {
    std::string folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::toupper(byte)); });
    return folded;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view Blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(Blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

bool is_tag(std::string_view line) { return line.ends_with(':'); }

// The lines of one section, without comments and tags. Nothing when there is no such tag.
std::optional<std::vector<std::string_view>> section_lines(std::string_view text, std::string_view section) {
    const std::string tag = upper(section) + ":";
    std::vector<std::string_view> lines;
    bool inside = false;
    bool ended = false;
    bool after_tag = false;
    for_each_line(text, [&](std::string_view raw) {
        const std::string_view line = trimmed(raw);
        if (ended || line.empty() || line.starts_with('#')) return;
        if (!inside) {
            inside = after_tag = upper(line) == tag;
        } else if (is_tag(line)) {
            ended = !after_tag;
        } else {
            after_tag = false;
            lines.push_back(line);
        }
    });
    if (!inside) return std::nullopt;
    return lines;
}

Result<void> add_section(std::string_view text, std::string_view section, int depth, EmulationSettings &settings) {
    if (depth > DeepestDuplicate)
        return Error{ELOOP, "emulation section '" + std::string(section) + "' takes over itself"};
    const auto lines = section_lines(text, section);
    if (!lines) return Error{ENOENT, "no emulation section '" + std::string(section) + "'"};
    EmulationSettings own;
    for (const std::string_view line : *lines) {
        const std::size_t equals = std::min(line.find('='), line.size());
        const std::string_view name = trimmed(line.substr(0, equals));
        const std::string_view value = trimmed(line.substr(std::min(equals + 1, line.size())));
        if (upper(name) != "DUP") {
            own[std::string(name)] = value;
        } else if (Result<void> added = add_section(text, value, depth + 1, settings); !added) {
            return added;
        }
    }
    for (auto &[name, value] : own) settings[name] = value;
    return {};
}

}  // namespace

Result<EmulationSettings> emulation_section(std::string_view text, std::string_view section) {
    EmulationSettings settings;
    if (const Result<void> added = add_section(text, section, 0, settings); !added) return added.error();
    return settings;
}

}  // namespace velda
