#include "commands/operands.h"

#include <cstdio>
#include <cstring>

#include "runtime/file/file.h"

namespace velda::commands {

namespace {

bool is_part_word(std::string_view word) {
    const std::string folded = upcase(VAR(word)).str();
    return folded == "DICT" || folded == "DATA";
}

// Length of the valid UTF-8 sequence at the start of `text`; 0 when there is none.
std::size_t utf8_length(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t length = lead < 0x80                   ? 1
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead >= 0xF0 && lead < 0xF5 ? 4
                                                             : 0;
    if (length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 0;
    }
    return length;
}

std::string json_escape(unsigned char byte) {
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", byte);
    return escape;
}

}  // namespace

Words take_options(Words &words) {
    Words options;
    while (!words.empty() && words.front().size() > 1 && words.front()[0] == '-') {
        options.push_back(words.front());
        words.erase(words.begin());
    }
    return options;
}

bool take_option(Words &words, std::string_view option) {
    if (words.empty()) return false;
    const auto at = words.front() == option ? words.begin() : words.back() == option ? words.end() - 1 : words.end();
    if (at == words.end()) return false;
    words.erase(at);
    return true;
}

std::string file_name_operand(std::string_view command, const Words &words) {
    if (words.empty()) usage_error(command, "a file name is missing");
    const std::size_t expected = is_part_word(words[0]) ? 2 : 1;
    if (words.size() < expected) usage_error(command, "a file name is missing behind '" + words[0] + "'");
    if (words.size() > expected) usage_error(command, "'" + words[expected] + "' is one word too many");
    return expected == 2 ? words[0] + " " + words[1] : words[0];
}

void open_operand(DP *dp, std::string_view command, const Words &words, VAR &file) {
    const VAR name = file_name_operand(command, words);
    if (VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, &file, nullptr) == 1) return;
    const int error = static_cast<int>(system_number(0).to_integer());
    const char *reason = error == VELDA_ERROR_PERMISSION ? "permission denied" : std::strerror(error);
    fail("Cannot open file '" + name.str() + "': " + reason);
}

std::string json_string(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text[0]);
        std::size_t length = utf8_length(text);
        if (byte == '"' || byte == '\\')
            result += {'\\', text[0]};
        else if (length == 0 || byte < 0x20)
            result += json_escape(byte), length = 1;
        else
            result += text.substr(0, length);
        text.remove_prefix(length);
    }
    return result + "\"";
}

JsonObject &JsonObject::member(std::string_view name, const std::string &value) {
    if (!members_.empty()) members_ += ", ";
    members_ += json_string(name) + ": " + value;
    return *this;
}

JsonObject &JsonObject::text(std::string_view name, std::string_view value) { return member(name, json_string(value)); }

JsonObject &JsonObject::number(std::string_view name, std::string_view digits) {
    return member(name, digits.empty() ? "null" : std::string(digits));
}

std::string json_array(const std::vector<JsonObject> &objects) {
    std::string text = "[";
    for (const JsonObject &object : objects) text += (text.size() > 1 ? ",\n " : "") + object.str();
    return text + "]";
}

}  // namespace velda::commands
