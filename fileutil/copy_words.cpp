// The words of a COPY command, with quoted stretches and commas as words of their own.
#include <string>

#include "fileutil/copy_command.h"

using namespace velda;

namespace {

// Walks the words of a command and gathers the new ones.
class WordNormaliser {
  public:
    explicit WordNormaliser(const VAR &words) : words_(words), last_(dcount(words, AM)) {}

    VAR normalise() {
        while (take_word()) {
            if (current_.front() == '"' || current_.front() == '\'')
                add_quoted(current_.front());
            else
                add_plain();
        }
        return normalised_;
    }

  private:
    // The current word is what an earlier one left, or the next that is not empty.
    bool take_word() {
        while (current_.empty() && position_ < last_) current_ = VAR(words_(++position_)).str();
        return !current_.empty();
    }

    void add(std::string_view word) { normalised_(++count_) = word; }

    // Adds the current word up to `end`; the rest stays.
    void add_front(const std::string &before, std::size_t end) {
        add(before + current_.substr(0, end));
        current_.erase(0, end);
    }

    void add_quoted(char quote) {
        std::string gathered;
        std::size_t closing = current_.find(quote, 1);
        while (closing == std::string::npos) {
            // Every word is joined by a blank but the closing one, unless it begins with the quote: "abc def" reads as
            // "abcdef". Command lines in use count on it, so the blank stays lost.
            gathered += current_;
            if (position_ == last_) {
                add(gathered);
                current_.clear();
                return;
            }
            current_ = VAR(words_(++position_)).str();
            closing = current_.find(quote);
            if (closing == std::string::npos || closing == 0) gathered += ' ';
        }
        add_front(gathered, closing + 1);
    }

    // What stands behind the comma is one word, also when it is empty or holds another comma.
    void add_plain() {
        const std::size_t comma = current_.find(',');
        if (comma == std::string::npos) {
            add(current_);
        } else {
            if (comma > 0) add(current_.substr(0, comma));
            add(",");
            add(current_.substr(comma + 1));
        }
        current_.clear();
    }

    const VAR &words_;
    const int last_;
    int position_ = 0;
    std::string current_;
    VAR normalised_;
    int count_ = 0;
};

}  // namespace

VAR copy::normalise_words(const VAR &words) { return WordNormaliser(words).normalise(); }
