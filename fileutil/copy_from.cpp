// The form "COPY FROM source ... TO target ...": a walk over its words by a table of keywords.
#include <algorithm>
#include <span>
#include <string_view>

#include "fileutil/copy_command.h"

using namespace velda;
using namespace velda::copy;

namespace {

constexpr int SourceNamePosition = 3;

bool is_section_word(const VAR &word) {
    const VAR folded = upcase(word);
    return folded == "DICT" || folded == "DATA";
}

class FromSyntax {
  public:
    static void show_keywords() {
        for (const Keyword &keyword : keywords()) crt_line(format(keyword.name, "L#12"), "- ", keyword.help);
    }

    FromSyntax(const VAR &words, CopyJob &job) : words_(words), job_(job) {}

    void read() {
        open_source();
        while (!word().empty()) read_word();
        store_options();
        store_list();
        job_.answer = answer_;
    }

  private:
    using Action = void (FromSyntax::*)();
    // Keywords are matched exactly, in upper case.
    struct Keyword {
        std::string_view name;
        Action action;
        char option;  // set by the keyword; 0 for none
        const char *help;
    };

    static std::span<const Keyword> keywords();

    VAR word() const { return words_(position_); }

    VAR take_word() { return words_(position_++); }

    // A file's name, with the section word in front of it.
    VAR take_file_name() {
        VAR name = take_word();
        if (is_section_word(name)) name = cat(name, " ", take_word());
        return name;
    }

    void open_source() {
        position_ = SourceNamePosition;
        const VAR name = take_file_name();
        if (!job_.SourceFile.open(name)) stop(frame::CannotOpenFile, name);
    }

    void read_word() {
        const VAR current = take_word();
        const auto table = keywords();
        const auto keyword = std::ranges::find(table, current.view(), &Keyword::name);
        if (keyword == table.end()) return key(current);
        if (keyword->option) options_ += keyword->option;
        (this->*keyword->action)();
    }

    void no_operand() {}

    void all() { whole_file_ = true; }

    void drop_answer() { answer_ = ""; }

    void printer() {
        drop_answer();
        if (matches(word(), "1N0N")) job_.print_unit = static_cast<int>(take_word().to_integer());
    }

    // The answer to the prompt for the target, as an operator would give it.
    void target() { answer_ = cat("(", take_file_name(), " ", answer_); }

    void report() { quiet_ = false; }

    void first() {
        if (!matches(word(), "1N0N")) return;
        const int64_t count = take_word().to_integer();
        SelectList selected = job_.SourceFile.select();
        VAR source_key;
        keys_ = "";
        keys_given_ = true;
        for (int64_t found = 0; found < count && selected.next(source_key); ++found) keys_.append(source_key);
        whole_file_ = false;
        drop_answer();
    }

    // A key of the source; behind a comma its key in the target.
    void key(const VAR &source_key) {
        keys_.append(source_key);
        keys_given_ = true;
        VAR target_key = source_key;
        if (word() == ",") {
            ++position_;
            target_key = take_word();
        }
        answer_ = cat(answer_, target_key, " ");
    }

    void store_options() {
        if (quiet_) options_ += 'Q';
        job_.Options2 = options_;
    }

    void store_list() {
        if (whole_file_)
            job_.SourceList = job_.SourceFile.select();
        else if (keys_given_)
            job_.SourceList = SelectList(keys_);
        else
            job_.SourceList.get_saved("");
    }

    const VAR &words_;
    CopyJob &job_;
    int position_ = 0;
    std::string options_;
    bool quiet_ = true;
    bool whole_file_ = false;
    bool keys_given_ = false;
    VAR keys_;
    VAR answer_;
};

std::span<const FromSyntax::Keyword> FromSyntax::keywords() {
    // UPDATING does not test that the target exists, in spite of its help: it is OVERWRITING under another name, and
    // the doubled word is in the help that users know.
    static constexpr Keyword Keywords[] = {
        {"ALL", &FromSyntax::all, 0, "Copies all records of SourceFilename"},
        {"OVERWRITING", &FromSyntax::no_operand, 'O', "Overwrites a record that exists in TargetFilename"},
        {"UPDATING", &FromSyntax::no_operand, 'O',
         "Copies the record only if the the record already exists in TargetFilename"},
        {"DELETING", &FromSyntax::no_operand, 'D', "Deletes each source record once it has been copied"},
        {"CRT", &FromSyntax::drop_answer, 'T', "Sends the records to the terminal"},
        {"LPTR", &FromSyntax::printer, 'P', "Sends the records to the printer; a number after it is the print unit"},
        {"HEX", &FromSyntax::no_operand, 'X', "Hexadecimal display"},
        {"NEW.PAGE", &FromSyntax::no_operand, 'F', "New page between records, with CRT or LPTR"},
        {"NUM.SUPP", &FromSyntax::no_operand, 'S', "No line numbers"},
        {"ID.SUP", &FromSyntax::no_operand, 'H', "Suppresses the record key line"},
        {"TO", &FromSyntax::target, 0, "The next word is TargetFilename"},
        {"SQUAWK", &FromSyntax::report, 0, "Not quiet: the number of records is reported"},
        {"REPORTING", &FromSyntax::report, 0, "Not quiet: the number of records is reported"},
        {"UNICODE", &FromSyntax::no_operand, 0, "Accepted and ignored"},
        {"FIRST", &FromSyntax::first, 0, "Copies as many records of SourceFilename as the number after it says"},
    };
    return Keywords;
}

}  // namespace

void copy::show_from_help() {
    crt_line("COPY FROM {DICT} SourceFilename TO {DICT} TargetFilename {OrigID,{NewID}} {...} {Options}");
    FromSyntax::show_keywords();
}

void copy::read_from_syntax(const VAR &words, CopyJob &job) { FromSyntax(words, job).read(); }
