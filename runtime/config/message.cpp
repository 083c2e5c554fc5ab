#include "runtime/config/message.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/config/release_directory.h"
#include "runtime/config/text_file.h"

namespace velda {
namespace {

// The texts of one message file. Never changed once it is loaded, so it can be read without a lock.
struct Catalogue {
    std::string path;
    std::unordered_map<std::string, std::string> texts;
};

Catalogue load_catalogue(const std::string &path) {
    Catalogue catalogue{path, {}};
    const Result<std::string> content = read_text_file(path);
    if (!content) {
        std::fprintf(stderr, "%s; messages show their keys and parameters only\n", content.error().message.c_str());
        return catalogue;
    }
    for_each_line(*content, [&](std::string_view line) {
        if (line.empty() || line.front() == '#') return;
        const std::size_t key_end = std::min(line.find(' '), line.size());
        const std::size_t text = std::min(line.find_first_not_of(' ', key_end), line.size());
        catalogue.texts[std::string(line.substr(0, key_end))] = line.substr(text);
    });
    return catalogue;
}

// The catalogue of the release directory that is set now. One that was loaded for another is kept: it may be in use.
const Catalogue &catalogue() {
    static std::mutex mutex;
    static std::vector<std::unique_ptr<const Catalogue>> loaded;
    const std::string path = release_directory() + "/messages";
    const std::lock_guard guard(mutex);
    for (const auto &known : loaded)
        if (known->path == path) return *known;
    return *loaded.emplace_back(std::make_unique<const Catalogue>(load_catalogue(path)));
}

std::string with_blanks(std::string_view parameters) {
    std::string text(parameters);
    std::replace(text.begin(), text.end(), VM, ' ');
    return text;
}

// Parameter `number` (from 1) of a list divided by VM.
std::string_view parameter(std::string_view parameters, int number) {
    for (; number > 1; --number) {
        const std::size_t mark = parameters.find(VM);
        if (mark == std::string_view::npos) return {};
        parameters.remove_prefix(mark + 1);
    }
    return parameters.substr(0, parameters.find(VM));
}

}  // namespace

std::string expand_message(std::string_view text, std::string_view parameters) {
    std::string expanded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char next = i + 1 < text.size() ? text[i + 1] : '\0';
        if (text[i] == '\\' && next == 'n') {
            expanded += '\n';
        } else if (text[i] == '%' && next == '%') {
            expanded += '%';
        } else if (text[i] == '%' && next == '*') {
            expanded += with_blanks(parameters);
        } else if (text[i] == '%' && next >= '1' && next <= '9') {
            expanded += parameter(parameters, next - '0');
        } else {
            expanded += text[i];
            continue;
        }
        ++i;
    }
    return expanded;
}

std::string format_message(DP *, std::string_view message) {
    std::string parts(message);
    std::replace(parts.begin(), parts.end(), AM, VM);
    const std::size_t mark = std::min(parts.find(VM), parts.size());
    std::string key = parts.substr(0, mark);
    while (!key.empty() && key.back() == ' ') key.pop_back();

    const auto &texts = catalogue().texts;
    const auto found = texts.find(key);
    if (found == texts.end()) return with_blanks(parts);
    return expand_message(found->second, std::string_view(parts).substr(std::min(mark + 1, parts.size())));
}

}  // namespace velda
