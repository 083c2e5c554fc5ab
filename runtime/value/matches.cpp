// matches.cpp - MATCHES: a text against a pattern of counted classes and literals.
//
// An element with count 0 can end anywhere, so the matcher does not follow one way through the text: it keeps the set
// of all places that the elements so far can have reached, and each element turns it into the next one. So the time is
// the pattern's length times the text's, whatever they hold.
#include <algorithm>
#include <string_view>
#include <vector>

#include "runtime/value/buffer.h"
#include "runtime/value/classes.h"

namespace velda {

namespace {

using InClass = bool (*)(char);

InClass class_of(char letter) {
    switch (letter) {
        case 'N':
            return is_digit;
        case 'A':
            return is_letter;
        case 'C':
            return is_letter_or_digit;
        case 'X':
            return [](char) { return true; };
        default:
            return nullptr;
    }
}

// An element of a pattern: a class and its count, or a literal.
struct PatternElement {
    InClass in_class = nullptr;
    std::size_t count = 0;  // 0 is any number
    std::string_view literal;
};

// Takes a number off the front; one too large for any text stays too large.
std::size_t take_count(std::string_view &digits) {
    std::size_t count = 0;
    for (char digit : digits) count = std::min(count * 10 + static_cast<std::size_t>(digit - '0'), MaximumLength + 1);
    return count;
}

// Takes the first element off the pattern, which is not empty.
PatternElement take_element(std::string_view &pattern) {
    PatternElement element;
    const std::size_t digits = std::min(pattern.find_first_not_of("0123456789"), pattern.size());
    if (digits > 0 && digits < pattern.size() && class_of(pattern[digits])) {
        std::string_view count = pattern.substr(0, digits);
        element.count = take_count(count);
        element.in_class = class_of(pattern[digits]);
        pattern.remove_prefix(digits + 1);
        return element;
    }
    const bool is_quoted = pattern.front() == '\'' || pattern.front() == '"';
    const std::size_t closing = is_quoted ? std::min(pattern.find(pattern.front(), 1), pattern.size()) : 1;
    element.literal = is_quoted ? pattern.substr(1, closing - 1) : pattern.substr(0, 1);
    pattern.remove_prefix(std::min(closing + is_quoted, pattern.size()));
    return element;
}

// Places in a text that a match can have reached: place p is before byte p.
class Places {
  public:
    explicit Places(std::string_view text) : text_(text), reached_(text.size() + 1, 0) { reached_[0] = 1; }

    void pass(const PatternElement &element) {
        if (!element.in_class)
            pass_literal(element.literal);
        else if (element.count == 0)
            pass_any_number(element.in_class);
        else
            pass_exactly(element.in_class, element.count);
    }
    bool reached_end() const { return reached_.back(); }

  private:
    void pass_literal(std::string_view literal) {
        for (std::size_t to = reached_.size(); to-- > 0;)
            reached_[to] = to >= literal.size() && reached_[to - literal.size()] &&
                           text_.substr(to - literal.size(), literal.size()) == literal;
    }
    void pass_any_number(InClass in_class) {
        for (std::size_t to = 1; to < reached_.size(); ++to)
            reached_[to] |= reached_[to - 1] && in_class(text_[to - 1]);
    }
    void pass_exactly(InClass in_class, std::size_t count) {
        std::vector<char> before(reached_.size(), 0);
        before.swap(reached_);
        std::size_t run = 0;  // bytes of the class before the place
        for (std::size_t to = 1; to < reached_.size(); ++to) {
            run = in_class(text_[to - 1]) ? run + 1 : 0;
            reached_[to] = run >= count && before[to - count];
        }
    }

    std::string_view text_;
    std::vector<char> reached_;
};

bool matches_alternative(std::string_view text, std::string_view pattern) {
    Places places(text);
    while (!pattern.empty()) places.pass(take_element(pattern));
    return places.reached_end();
}

bool matches(std::string_view text, std::string_view pattern) {
    for (;;) {
        const std::size_t end = std::min(pattern.find(VM), pattern.size());
        if (matches_alternative(text, pattern.substr(0, end))) return true;
        if (end == pattern.size()) return false;
        pattern.remove_prefix(end + 1);
    }
}

}  // namespace

}  // namespace velda

int VLibEMATCHES_IBB(DP *, const VAR *string, const VAR *pattern) {
    return velda::matches(velda::text_of(*string), velda::text_of(*pattern));
}
