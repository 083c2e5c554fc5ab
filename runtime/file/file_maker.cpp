// file_maker.cpp - CREATE-FILE and DELETE-FILE: a database file's data section and dictionary made and removed
// together.
#include <algorithm>
#include <cerrno>

#include "runtime/file/statement.h"
#include "runtime/store/journalling.h"
#include "runtime/store/setting_words.h"
#include "runtime/value/value.h"

namespace velda::file {
namespace {

// Which parts of a database file a command is about.
enum class Part { Both, Dictionary, Data };

struct Request {
    Part part = Part::Both;
    std::string name;
    store::WantedFile wanted;
};

std::string in_upper_case(std::string_view text) {
    std::string upper(text);
    for (char &byte : upper) {
        if (byte >= 'a' && byte <= 'z') byte = static_cast<char>(byte - 'a' + 'A');
    }
    return upper;
}

Error invalid(std::string_view what, std::string_view value) {
    return {EINVAL, std::string(what) + " '" + shown_in_message(value) + "'"};
}

// --- words of the command ------------------------------------------------------------------------------------------

// "1", "11", "23,1": the sizes of files of older systems.
bool is_size(std::string_view word) {
    return !word.empty() && word.front() >= '0' && word.front() <= '9' &&
           word.find_first_not_of("0123456789,") == std::string_view::npos;
}

std::vector<std::string> words_of(const VAR &operands) {
    std::vector<std::string> words;
    const int count = VLibEDCOUNT_IBB(nullptr, &operands, Argument(AM));
    for (int i = 1; i <= count; ++i) {
        if (!operands(i).empty()) words.push_back(operands(i).str());
    }
    return words;
}

// The name may come as one word, "DICT NAME", as the logic's file names do.
void split_name(Request &request) {
    const std::string upper = in_upper_case(request.name);
    for (const auto &[prefix, part] : {std::pair{"DICT ", Part::Dictionary}, std::pair{"DATA ", Part::Data}}) {
        if (!upper.starts_with(prefix)) continue;
        request.part = part;
        request.name.erase(0, 5);
    }
}

// Words are told apart by their form: an option begins with "-" or a setting's name, a size comes behind the name.
Result<Request> parse(const VAR &operands) {
    Request request;
    for (const std::string &word : words_of(operands)) {
        const std::string upper = in_upper_case(word);
        if (store::is_setting_word(word)) {
            if (const auto taken = store::take_setting_word(request.wanted, word); !taken) return taken.error();
        } else if (request.name.empty() && request.part == Part::Both && (upper == "DICT" || upper == "DATA")) {
            request.part = upper == "DICT" ? Part::Dictionary : Part::Data;
        } else if (request.name.empty()) {
            request.name = word;
            split_name(request);
        } else if (is_size(word)) {
            request.wanted.settings.options.push_back(word);
        } else {
            return invalid("unknown word", word);
        }
    }
    if (request.name.empty()) return Error{EINVAL, ""};
    return request;
}

// --- making and removing -------------------------------------------------------------------------------------------

bool names_section(std::string_view name) { return name.find(',') != std::string_view::npos; }

// NAME of NAME,SECTION: the dictionary belongs to the whole file.
std::string without_section(std::string_view name) { return std::string(name.substr(0, name.find(','))); }

Result<std::string> path_of(std::string_view name, bool dictionary) {
    auto parsed = store::parse_file_name(dictionary ? without_section(name) : std::string(name), dictionary);
    if (!parsed) return parsed.error();
    return parsed->path;
}

Result<void> make(const Request &request, bool dictionary) {
    const auto path = path_of(request.name, dictionary);
    if (!path) return path.error();
    const bool typed = request.wanted.type && (!dictionary || request.part == Part::Dictionary);
    return store::create_file(*path, typed ? *request.wanted.type : "HL", request.wanted.settings);
}

Result<void> remove(const Request &request, bool dictionary) {
    const auto path = path_of(request.name, dictionary);
    if (!path) return path.error();
    return store::destroy_file(*path);
}

// Dictionary first: a data section without dictionary is never seen. What was made goes again when the rest fails.
Result<void> make_parts(const Request &request) {
    bool made_dictionary = false;
    if (request.part != Part::Data) {
        const auto made = make(request, true);
        const bool shared = names_section(request.name) && request.part == Part::Both;
        if (!made && !(shared && made.error().number == EEXIST)) return made;
        made_dictionary = made.ok();
    }
    if (request.part == Part::Dictionary) return {};
    auto made = make(request, false);
    if (made || !made_dictionary) return made;
    if (const auto undone = remove(request, true); !undone)
        return Error{made.error().number, made.error().message + "; its dictionary stays: " + undone.error().message};
    return made;
}

// Data first, for the same reason. A section leaves the dictionary to the rest of the file.
Result<void> remove_parts(const Request &request) {
    if (request.part != Part::Dictionary) {
        if (auto removed = remove(request, false); !removed) return removed;
    }
    if (request.part == Part::Data || (request.part == Part::Both && names_section(request.name))) return {};
    auto removed = remove(request, true);
    const bool may_lack = request.part == Part::Both;
    if (!removed && may_lack && removed.error().number == ENOENT) return {};
    return removed;
}

int run(DP *dp, const VAR *operands, VAR *message, std::string_view failure, Result<void> (*action)(const Request &)) {
    const store::UpdateScope scope(dp, true);
    const auto request = parse(*operands);
    const auto done = request ? action(*request) : Result<void>(request.error());
    if (done) return Done;
    const Error &error = done.error();
    std::string text = error.message.empty() ? "200" : std::string(failure);
    if (!error.message.empty()) {
        text += VM;
        text += request ? shown_in_message(request->name) : shown_in_message((*operands)(1).view());
        text += VM;
        text += error.message;
    }
    if (message) *message = text;
    return take_else_path({dp, 0, nullptr}, error.number);
}

}  // namespace
}  // namespace velda::file

int velda_create_file(DP *dp, const VAR *operands, VAR *message) {
    return velda::file::run(dp, operands, message, "FILE_CREATE", velda::file::make_parts);
}

int velda_delete_file(DP *dp, const VAR *operands, VAR *message) {
    return velda::file::run(dp, operands, message, "FILE_REMOVE", velda::file::remove_parts);
}
