// Names of database files as the statements take them.
#include <algorithm>
#include <cctype>
#include <cerrno>

#include "runtime/store/driver.h"

namespace velda::store {
namespace {

constexpr std::string_view DictionarySuffix = "]D";

// Drops a leading word and the blanks behind it; the case does not matter.
bool drop_word(std::string_view &name, std::string_view word) {
    if (name.size() <= word.size() || name[word.size()] != ' ') return false;
    const auto same = [](char a, char b) { return std::toupper(static_cast<unsigned char>(a)) == b; };
    if (!std::equal(word.begin(), word.end(), name.begin(), [&](char b, char a) { return same(a, b); })) return false;
    name.remove_prefix(word.size());
    name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
    return true;
}

std::string with_slashes(std::string_view name) {
    std::string path(name);
    std::replace(path.begin(), path.end(), '\\', '/');
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// "dir/NAME,SECTION" as "dir/NAME" and "SECTION". All sections of a file share its dictionary.
struct Section {
    std::string file;
    std::string name;  // "" for the data section
};

Section section_of(const std::string &path) {
    const std::size_t last = path.rfind('/') + 1;  // 0 without a directory
    const std::size_t comma = path.find(',', last);
    if (comma == std::string::npos) return {path, ""};
    const std::string name = path.substr(comma + 1);
    return {path.substr(0, comma), name == path.substr(last, comma - last) ? "" : name};
}

Error missing_name() { return {EINVAL, "a file name is missing"}; }

}  // namespace

Result<FileName> parse_file_name(std::string_view name, bool dictionary) {
    name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
    while (!name.empty() && name.back() == ' ') name.remove_suffix(1);
    if (drop_word(name, "DICT"))
        dictionary = true;
    else
        drop_word(name, "DATA");
    if (name.empty()) return missing_name();
    if (name.find('\0') != name.npos) return Error{EINVAL, "a file name may not hold a zero byte"};
    const Section section = section_of(with_slashes(name));
    const bool has_comma = name.find(',') != name.npos;
    if (section.file.empty() || (has_comma && section.file.ends_with('/'))) return missing_name();
    FileName result{section.file};
    if (dictionary && !result.path.ends_with(DictionarySuffix)) result.path.append(DictionarySuffix);
    if (!dictionary && !section.name.empty()) result.path.append("]").append(section.name);
    return result;
}

}  // namespace velda::store
