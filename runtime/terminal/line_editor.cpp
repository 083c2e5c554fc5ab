#include "runtime/terminal/line_editor.h"

namespace velda {
namespace {

constexpr unsigned char Backspace = 0x08;
constexpr unsigned char LineFeed = '\n';
constexpr unsigned char CarriageReturn = '\r';
constexpr unsigned char CancelLine = 0x18;  // control X, beside the user's own key
constexpr unsigned char Delete = 0x7F;

bool is_continuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Bytes of the UTF-8 character that begins with this byte; 1 for anything that begins none.
std::size_t character_size(unsigned char lead) {
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 1;
}

// Bytes of the last character: a whole UTF-8 character, or one byte where there is none.
std::size_t last_character_size(const std::string &text) {
    for (std::size_t size = 1; size <= 4 && size <= text.size(); ++size) {
        const auto byte = static_cast<unsigned char>(text[text.size() - size]);
        if (is_continuation(byte)) continue;
        return character_size(byte) == size ? size : 1;
    }
    return 1;
}

}  // namespace

std::string display_of(unsigned char byte) {
    switch (byte) {
        case 0xFE:
            return "^";
        case 0xFD:
            return "]";
        case 0xFC:
            return "\\";
        case Delete:
            return "^?";
        default:
            break;
    }
    if (byte < ' ') return {'^', static_cast<char>(byte + '@')};
    return {static_cast<char>(byte)};
}

LineEditor::State LineEditor::feed(unsigned char key, std::string &shown) {
    if (next_is_literal_) {
        next_is_literal_ = false;
        return take(key, shown);
    }
    if (key == CarriageReturn || key == LineFeed) return State::Done;
    if (key == keys_.erase || key == Backspace || key == Delete) {
        erase_character(shown);
    } else if (key == keys_.kill || key == CancelLine) {
        erase_line(shown);
    } else if (key == keys_.word_erase) {
        erase_word(shown);
    } else if (key == keys_.literal_next) {
        next_is_literal_ = true;
    } else if (key == keys_.end_of_input) {
        return text_.empty() ? State::End : State::Done;
    } else {
        return take(key, shown);
    }
    return State::More;
}

LineEditor::State LineEditor::take(unsigned char key, std::string &shown) {
    text_ += static_cast<char>(key);
    shown += display_of(key);
    return length_ >= 0 && text_.size() >= static_cast<std::size_t>(length_) ? State::Done : State::More;
}

void LineEditor::erase_character(std::string &shown) {
    if (text_.empty()) return;
    const std::size_t size = last_character_size(text_);
    // A character of several bytes stands in one column, a control character in two.
    std::size_t columns = size > 1 ? 1 : display_of(static_cast<unsigned char>(text_.back())).size();
    text_.resize(text_.size() - size);
    for (; columns > 0; --columns) shown += "\b \b";
}

void LineEditor::erase_word(std::string &shown) {
    while (!text_.empty() && text_.back() == ' ') erase_character(shown);
    while (!text_.empty() && text_.back() != ' ') erase_character(shown);
}

void LineEditor::erase_line(std::string &shown) {
    while (!text_.empty()) erase_character(shown);
}

std::string LineEditor::display() const {
    std::string result;
    for (const char byte : text_) result += display_of(static_cast<unsigned char>(byte));
    return result;
}

}  // namespace velda
