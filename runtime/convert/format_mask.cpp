#include "runtime/convert/format_mask.h"

#include "runtime/convert/text.h"
#include "runtime/vdefc.h"

namespace velda::conversions {
namespace {

constexpr std::string_view Justifications = "LRCT";
constexpr char Fold = 'T';

// What fills the empty columns of a fill letter; 0 when it is none.
char fill_of(char letter) {
    switch (letter) {
        case '#':
            return ' ';
        case '%':
            return '0';
        case '*':
            return '*';
        default:
            return 0;
    }
}

// How many empty columns stand in front of a text.
std::size_t empty_in_front(char justification, std::size_t empty) {
    if (justification == 'R') return empty;
    return justification == 'C' ? empty / 2 : 0;
}

// One line of a folded text, and how many bytes of the text it uses up with the blanks or the TM behind it.
struct FoldedLine {
    std::string_view text;
    std::size_t taken;
};

// Breaks at the last blank that leaves a line within the columns, and inside a word only where the word alone is wider
// than a line. A TM in the text ends a line too.
FoldedLine next_line(std::string_view text, std::size_t columns) {
    const std::string_view line = text.substr(0, text.find(TM));
    if (line.size() <= columns) return {line, line.size() + 1};
    const std::size_t blank = line.rfind(' ', columns);
    const std::size_t last = blank == std::string_view::npos ? blank : line.find_last_not_of(' ', blank);
    if (last == std::string_view::npos) return {line.substr(0, columns), columns};
    const std::size_t next = line.find_first_not_of(' ', blank);
    return {line.substr(0, last + 1), next == std::string_view::npos ? line.size() + 1 : next};
}

}  // namespace

std::optional<FormatMask> FormatMask::compile(std::string_view text, bool scale_is_decimals) {
    FormatMask mask;
    const std::string_view width = take_digits(text);
    const bool justified = !text.empty() && Justifications.find(text[0]) != std::string_view::npos;
    const bool may_begin = justified || (!text.empty() && !is_letter_or_digit(text[0]));
    if (!may_begin || (!width.empty() && !justified)) return std::nullopt;
    if (justified) {
        mask.justification_ = text[0];
        text.remove_prefix(1);
        mask.number_ = NumberFormat::take(text, scale_is_decimals);
    }
    if (!width.empty() && !(text.empty() && mask.add_columns(' ', small_number(width).value_or(-1))))
        return std::nullopt;
    if (!mask.take_layout(text)) return std::nullopt;
    if (mask.layout_.empty() && mask.number_.is_plain()) return std::nullopt;
    if (mask.justification_ == Fold && (mask.layout_.size() != 1 || mask.columns_ == 0)) return std::nullopt;
    return mask;
}

bool FormatMask::add_columns(char fill, int count) {
    if (count < 0 || count > MaximumColumns - columns_) return false;
    layout_.push_back({fill, count});
    columns_ += count;
    return true;
}

bool FormatMask::take_layout(std::string_view text) {
    bool has_fill = !layout_.empty();
    while (!text.empty()) {
        const char byte = text[0];
        text.remove_prefix(1);
        const char fill = fill_of(byte);
        if (fill == 0) {
            layout_.push_back({byte, LiteralByte});
            continue;
        }
        has_fill = true;
        const std::string_view count = take_digits(text);
        if (!add_columns(fill, count.empty() ? 1 : small_number(count).value_or(-1))) return false;
    }
    return has_fill || layout_.empty();
}

Converted FormatMask::apply(std::string_view value) const {
    std::string written;
    Status status = Status::Done;
    if (!number_.is_plain()) {
        const auto number = DecimalText::parse(value);
        if (number) {
            written = number_.write(*number);
            value = written;
        } else if (!value.empty()) {
            status = Status::BadValue;
        }
    }
    if (layout_.empty()) return {std::string(value), status};
    return {justification_ == Fold ? fold(value) : lay_out(value), status};
}

std::string FormatMask::lay_out(std::string_view text) const {
    const auto columns = static_cast<std::size_t>(columns_);
    if (text.size() > columns)
        text = justification_ == 'R' ? text.substr(text.size() - columns) : text.substr(0, columns);
    const std::size_t first = empty_in_front(justification_, columns - text.size());
    std::size_t column = 0;
    std::string result;
    for (const Piece &piece : layout_) {
        if (piece.columns == LiteralByte) {
            result += piece.byte;
            continue;
        }
        for (const std::size_t end = column + static_cast<std::size_t>(piece.columns); column < end; ++column) {
            const bool has_text = column >= first && column - first < text.size();
            result += has_text ? text[column - first] : piece.byte;
        }
    }
    return result;
}

// Each line is filled up to the columns, and TM stands between the lines.
std::string FormatMask::fold(std::string_view text) const {
    const auto columns = static_cast<std::size_t>(columns_);
    std::string result;
    for (;;) {
        const FoldedLine line = next_line(text, columns);
        result.append(line.text).append(columns - line.text.size(), layout_[0].byte);
        if (line.taken >= text.size()) return result;
        text.remove_prefix(line.taken);
        result += TM;
    }
}

}  // namespace velda::conversions
