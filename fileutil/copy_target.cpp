// The target of a COPY: the answer to its prompt names another file, keys in it, or both.
#include "fileutil/copy_command.h"

using namespace velda;
using namespace velda::copy;

namespace {

constexpr const char *TargetPrompt = "COPY_TO";

VAR read_stacked_answer() {
    const EchoOff echo_off;
    VAR answer;
    input(answer, {.flags = VELDA_INPUT_NO_PROMPT});
    return answer;
}

VAR ask_for_target() {
    if (stacked_data()) return read_stacked_answer();
    print_message(TargetPrompt);
    set_prompt("");
    VAR answer;
    input(answer);
    return answer;
}

bool begins_with_quote(std::string_view word) { return word.starts_with('"') || word.starts_with('\''); }

// Takes one target key off the words. One that begins with a quote runs on to the word that ends with it.
VAR take_target_key(const VAR &words, int &position) {
    const VAR word = words(position++);
    if (!begins_with_quote(word.view())) return word;
    const char quote = word.view().front();
    if (word.view().ends_with(quote)) return word.substring(2, -2);
    VAR key = word.substring(2, -1);
    const int last = dcount(words, AM);
    while (position <= last) {
        const VAR next = words(position++);
        if (next.view().ends_with(quote)) return cat(key, " ", next.substring(1, -2));
        key = cat(key, " ", next);
    }
    return key;
}

VAR target_keys(const VAR &words) {
    VAR keys;
    const int last = dcount(words, AM);
    int count = 0;
    for (int position = 1; position <= last;) keys(++count) = take_target_key(words, position);
    return keys;
}

VAR without_closing_bracket(const VAR &name) { return name.view().ends_with(')') ? name.substring(1, -2) : name; }

// Takes "(NAME", "(NAME)" or "(DICT NAME)" off the words. "DATA" is no section word here.
VAR take_file_name(VAR &words) {
    VAR name = without_closing_bracket(VAR(words(1)).substring(2, -1));
    words.remove(1);
    if (upcase(name) != "DICT") return name;
    name = without_closing_bracket(words(1));
    words.remove(1);
    return name.empty() ? name : cat("DICT ", name);
}

VAR file_type(const File &file) { return file.status()(VELDA_STATUS_TYPE); }

// Files of one type are copied unconverted, unless text mode was asked for.
void set_target_mode(CopyJob &job) {
    if (job.has('B')) {
        job.TargetFile.set_mode(BinaryMode);
        return;
    }
    if (job.has('A') || file_type(job.SourceFile) != file_type(job.TargetFile)) return;
    job.SourceFile.set_mode(BinaryMode);
    job.TargetFile.set_mode(BinaryMode);
}

bool open_target(CopyJob &job, const VAR &name) {
    if (name.empty()) {
        print_message(frame::NoFileName);
        return false;
    }
    if (!job.TargetFile.open(name)) {
        print_message(frame::CannotOpenFile, name);
        return false;
    }
    set_target_mode(job);
    return true;
}

}  // namespace

bool copy::get_target(CopyJob &job) {
    // Stacked only now: where nobody asks for the target, the line would answer the pause at the end of a page.
    if (job.answer) stack_data(*job.answer);
    const VAR answer = trim(ask_for_target());
    if (answer.empty()) {
        job.utility.option('T') = 1;
        return true;
    }
    VAR words = change(answer, " ", AM);
    if (!words.view().starts_with('('))
        job.TargetFile = job.SourceFile;
    else if (!open_target(job, take_file_name(words)))
        return false;
    job.TargetList = SelectList(target_keys(words));
    return true;
}
