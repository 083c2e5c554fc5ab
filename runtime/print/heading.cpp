#include "runtime/print/heading.h"

#include <algorithm>
#include <cctype>

#include "runtime/vdefc.h"

namespace velda {
namespace {

constexpr int WideNumberColumns = 4;  // of 'PP'
constexpr int LargestNumber = 1000;

std::string right_justified(std::string text, int width) {
    const auto wanted = static_cast<std::size_t>(std::max(width, 0));
    return text.size() < wanted ? std::string(wanted - text.size(), ' ') + text : text;
}

// Takes the digits at the front off `letters`; 0 when there are none.
int take_number(std::string_view &letters) {
    int number = 0;
    while (!letters.empty() && std::isdigit(static_cast<unsigned char>(letters.front()))) {
        number = std::min(number * 10 + (letters.front() - '0'), LargestNumber);
        letters.remove_prefix(1);
    }
    return number;
}

}  // namespace

int columns_of(std::string_view text) {
    return static_cast<int>(std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

Heading::Heading(std::string_view text) {
    if (text.empty()) return;
    lines_.emplace_back();
    while (!text.empty()) {
        const std::size_t open = std::min(text.find('\''), text.size());
        add_text(text.substr(0, open));
        if (open == text.size()) return;
        text.remove_prefix(open + 1);
        const std::size_t close = std::min(text.find('\''), text.size());
        if (close == 0)
            add_text("'");
        else
            add_options(text.substr(0, close));
        text.remove_prefix(std::min(close + 1, text.size()));
    }
}

void Heading::add_text(std::string_view text) {
    while (true) {
        const std::size_t end = std::min(text.find(AM), text.size());
        if (end > 0) lines_.back().pieces.push_back({PieceKind::Text, std::string(text.substr(0, end))});
        if (end == text.size()) return;
        lines_.emplace_back();
        text.remove_prefix(end + 1);
    }
}

void Heading::add_options(std::string_view letters) {
    while (!letters.empty()) {
        const char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letters.front())));
        letters.remove_prefix(1);
        int number = take_number(letters);
        if (letter == 'P' && letters.starts_with('P')) {
            letters.remove_prefix(1);
            number = WideNumberColumns;
        }
        add_option(letter, number);
    }
}

void Heading::add_option(char letter, int number) {
    Line &line = lines_.back();
    switch (letter) {
        case 'P':
            line.pieces.push_back({PieceKind::PageNumber, "", number});
            break;
        case 'D':
            line.pieces.push_back({PieceKind::Date, ""});
            break;
        case 'T':
            line.pieces.push_back({PieceKind::TimeAndDate, ""});
            break;
        case 'L':
            lines_.emplace_back();
            break;
        case 'C':
            line.centred = true;
            line.centre_columns = number;
            break;
        case 'N':
            pauses_ = false;
            break;
        default:
            break;
    }
}

std::vector<std::string> Heading::render(const PageFacts &page) const {
    std::vector<std::string> rendered;
    for (const Line &line : lines_) rendered.push_back(render_line(line, page));
    return rendered;
}

std::string Heading::render_line(const Line &line, const PageFacts &page) {
    std::string text;
    for (const Piece &piece : line.pieces) text += render_piece(piece, page);
    if (!line.centred) return text;
    const int within = line.centre_columns > 0 ? line.centre_columns : page.columns;
    const int spare = within - columns_of(text);
    return spare > 1 ? std::string(static_cast<std::size_t>(spare / 2), ' ') + text : text;
}

std::string Heading::render_piece(const Piece &piece, const PageFacts &page) {
    switch (piece.kind) {
        case PieceKind::PageNumber:
            return right_justified(std::to_string(page.number), piece.width);
        case PieceKind::Date:
            return page.date;
        case PieceKind::TimeAndDate:
            return page.time_and_date;
        case PieceKind::Text:
            break;
    }
    return piece.text;
}

}  // namespace velda
