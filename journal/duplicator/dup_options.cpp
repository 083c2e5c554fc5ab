// The duplicator's words: "h?e:fl:m:u:vxHJ:V" in front, single letters that may be joined, then INPUT and OUTPUT.
#include "journal/duplicator/dup_options.h"

#include <charconv>
#include <cstdio>

#include "journal/duplicator/dup_log.h"
#include "journal/select_parser.h"

namespace velda::journal {

namespace {

struct OptionRow {
    char letter;
    bool takes_value;
    bool (*action)(DupOptions &options, const std::string &value);  // false: the value is wrong
};

bool store_number(std::uint32_t &field, const std::string &value) {
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), field);
    return error == std::errc() && end == value.data() + value.size();
}

bool show_every_record(DupOptions &options, std::uint32_t level) {
    options.verbose_level = level;
    options.progress_every = 1;
    return true;
}

bool concise_help(DupOptions &options, const std::string &) { return options.concise_help = true; }

constexpr OptionRow Options[] = {
    {'h', false, concise_help},
    {'?', false, concise_help},
    {'e', true, [](DupOptions &options, const std::string &value) { return options.error_file = value, true; }},
    {'f', false, [](DupOptions &options, const std::string &) { return options.future = true; }},
    {'l', true, [](DupOptions &options, const std::string &value) { return options.log_file = value, true; }},
    {'m', true, [](DupOptions &options, const std::string &value) { return store_number(options.max_errors, value); }},
    {'u', true,
     [](DupOptions &options, const std::string &value) { return store_number(options.progress_every, value); }},
    {'v', false, [](DupOptions &options, const std::string &) { return show_every_record(options, 1); }},
    {'x', false, [](DupOptions &options, const std::string &) { return options.exclusive = true; }},
    {'H', false, [](DupOptions &options, const std::string &) { return options.verbose_help = true; }},
    {'J', true, [](DupOptions &, const std::string &) { return true; }},  // taken and ignored
    {'V', false, [](DupOptions &options, const std::string &) { return show_every_record(options, 2); }},
};

const OptionRow *find_option(char letter) {
    for (const OptionRow &option : Options)
        if (option.letter == letter) return &option;
    return nullptr;
}

// The letters of one word; the value of the last may be the word behind, which `next` then passes over.
bool read_letters(DP *dp, const std::string &program, const std::vector<std::string> &words, std::size_t &next,
                  DupOptions &options) {
    const std::string &word = words[next++];
    for (std::size_t at = 1; at < word.size(); ++at) {
        const OptionRow *const option = find_option(word[at]);
        if (!option) {
            VELDAfprintf(dp, stderr, "%s: illegal option -- %c\n", program.c_str(), word[at]);
            return false;
        }
        std::string value = option->takes_value ? word.substr(at + 1) : "";
        if (option->takes_value && value.empty()) {
            if (next == words.size()) {
                VELDAfprintf(dp, stderr, "%s: option requires an argument -- %c\n", program.c_str(), word[at]);
                return false;
            }
            value = words[next++];
        }
        if (!option->action(options, value)) {
            VELDAfprintf(dp, stderr, "%s: '%s' is not a number -- %c\n", program.c_str(), value.c_str(), word[at]);
            return false;
        }
        if (option->takes_value || options.concise_help || options.verbose_help) break;
    }
    return true;
}

void replace(std::string &line, const std::string &placeholder, const std::string &text) {
    const std::size_t at = line.find(placeholder);
    if (at != std::string::npos) line.replace(at, placeholder.size(), text);
}

}  // namespace

std::optional<DupOptions> read_options(DP *dp, const std::string &program, const std::vector<std::string> &words) {
    DupOptions options;
    std::size_t next = 0;
    while (next < words.size() && words[next].size() > 1 && words[next][0] == '-') {
        if (words[next] == "--") {
            ++next;
            break;
        }
        if (!read_letters(dp, program, words, next, options)) return std::nullopt;
        if (options.concise_help || options.verbose_help) return options;
    }
    options.operands.assign(words.begin() + static_cast<std::ptrdiff_t>(next), words.end());
    return options;
}

std::optional<DupSpecifications> read_specifications(DP *dp, const std::string &program,
                                                     const std::vector<std::string> &operands) {
    DupSpecifications texts;
    std::string *selected = nullptr;
    for (const std::string &word : operands) {
        if (same_word(word, "INPUT"))
            selected = &texts.input;
        else if (same_word(word, "OUTPUT"))
            selected = &texts.output;
        else if (selected)
            *selected += (selected->empty() ? "" : " ") + word;
        else {
            VELDAfprintf(dp, stderr, "%s: Error, %s is defined BEFORE any INPUT or OUTPUT keyword\n", program.c_str(),
                         word.c_str());
            return std::nullopt;
        }
    }
    if (texts.input.empty())
        VELDAfprintf(dp, stderr, "%s: Error, no INPUT set specification defined\n", program.c_str());
    else if (texts.output.empty())
        VELDAfprintf(dp, stderr, "%s: Error, no OUTPUT set specification defined\n", program.c_str());
    else
        return texts;
    return std::nullopt;
}

void print_help(DP *dp, const std::string &program, bool is_verbose) {
    const auto print = [&](std::string line) {
        replace(line, "%s", program);
        replace(line, "%d", std::to_string(DupOptions::DefaultMaxErrors));
        VELDAprintf(dp, "%s\n", line.c_str());
    };
    for (const char *const line : ConciseHelp) print(line);
    if (!is_verbose) return;
    for (const char *const line : VerboseHelp) print(line);
}

}  // namespace velda::journal
