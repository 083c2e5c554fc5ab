#include "commands/command.h"

#include <algorithm>

#include "runtime/process/command_table.h"

namespace velda::commands {

namespace {

std::string lower_case(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char byte) { return std::tolower(byte); });
    return result;
}

bool asks_for_help(const Words &words) {
    return words.size() == 1 && (words[0] == "-?" || words[0] == "?" || words[0] == "-h" || words[0] == "--help");
}

// What the runtime calls for every command of the table: finds the entry by the name that the sentence begins with.
void run_registered(DP *dp) {
    const VAR sentence = system_number(1000);
    const CommandEntry *entry = find_entry(sentence(1));
    const Words words = command_words();
    if (!entry->own_help && asks_for_help(words)) {
        crt(help_text(*entry));
        return;
    }
    entry->run(dp, words);
}

// Both spellings of every name, as the runtime's table wants them.
struct Registration {
    std::vector<std::string> lower_names;
    std::vector<Command> commands;

    Registration() {
        lower_names.reserve(command_entries().size());
        for (const CommandEntry &entry : command_entries()) {
            commands.push_back({entry.name, run_registered});
            lower_names.push_back(lower_case(entry.name));
            if (lower_names.back() != entry.name) commands.push_back({lower_names.back(), run_registered});
        }
    }
};

void chain_to(DP *dp, void *sentence) {
    const VAR command(*static_cast<const std::string *>(sentence));
    VLibCCHAIN_VB(dp, &command);
}

}  // namespace

const CommandEntry *find_entry(std::string_view name) {
    const auto entries = command_entries();
    const auto found = std::find_if(entries.begin(), entries.end(), [&](const CommandEntry &entry) {
        return entry.name == name || lower_case(entry.name) == name;
    });
    return found == entries.end() ? nullptr : &*found;
}

void register_command_entries() {
    static const Registration registration;
    register_commands(registration.commands);
}

std::string help_text(const CommandEntry &entry) {
    std::string text =
        std::string(entry.name) + " " + std::string(entry.arguments) + "\n\n" + std::string(entry.summary) + "\n";
    if (!entry.details.empty()) text += "\n" + std::string(entry.details) + "\n";
    return text;
}

std::string help_overview() {
    std::string text;
    for (const CommandEntry &entry : command_entries()) {
        std::string name(entry.name);
        name.resize(std::max<std::size_t>(name.size(), 12), ' ');
        text += name + " " + std::string(entry.summary) + "\n";
    }
    return text + "\nCOMMAND -? shows the help of one command.\n";
}

Words command_words() {
    const VAR sentence = system_number(1000);
    const std::string_view text = sentence.view();
    Words words;
    const std::string dividers = {AM, ' ', '\t'};
    for (std::size_t start = text.find_first_of(dividers); start < text.size();) {
        start = text.find_first_not_of(dividers, start);
        if (start == std::string_view::npos) break;
        const std::size_t end = std::min(text.find_first_of(dividers, start), text.size());
        words.emplace_back(text.substr(start, end - start));
        start = end;
    }
    return words;
}

std::string join_words(const Words &words) {
    std::string sentence;
    for (const std::string &word : words) {
        if (!sentence.empty()) sentence += AM;
        sentence += word;
    }
    return sentence;
}

int run_sentence(DP *dp, const std::string &sentence) {
    std::string argument = sentence;
    return velda_run(dp, "velda", chain_to, &argument);
}

void usage_error(std::string_view command, const std::string &reason) {
    crt_line(std::string(command) + ": " + reason + "; '" + std::string(command) + " -?' shows how to use it");
    exit_command(2);
}

void fail(const std::string &message) {
    crt_line(message);
    exit_command(1);
}

}  // namespace velda::commands
