// heading.h - the text of HEADING and FOOTING and its rendering for one page. Private to the runtime.
//
// Text stands as it is, and letters between single quotes are options:
//   P page number; PP or P and digits: right-justified in four, or so many, columns
//   D date; T time and date
//   L new line (so is an attribute mark in the text)
//   C centres the line; with digits, within so many columns
//   N no pause at the end of a page on the terminal
// Two quotes with nothing between are one quote. Other letters mean nothing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velda {

// What a page brings to its headings.
struct PageFacts {
    int number;
    int columns;
    std::string date;
    std::string time_and_date;
};

class Heading {
  public:
    Heading() = default;
    explicit Heading(std::string_view text);

    // True for a heading of no text: there is none.
    bool empty() const { return lines_.empty(); }
    int line_count() const { return static_cast<int>(lines_.size()); }
    bool pauses() const { return pauses_; }

    // Its lines on one page, each without line feed.
    std::vector<std::string> render(const PageFacts &page) const;

  private:
    enum class PieceKind { Text, PageNumber, Date, TimeAndDate };
    struct Piece {
        PieceKind kind;
        std::string text;
        int width = 0;
    };
    struct Line {
        std::vector<Piece> pieces;
        bool centred = false;
        int centre_columns = 0;  // 0: the page's
    };

    void add_text(std::string_view text);
    void add_options(std::string_view letters);
    void add_option(char letter, int number);
    static std::string render_line(const Line &line, const PageFacts &page);
    static std::string render_piece(const Piece &piece, const PageFacts &page);

    std::vector<Line> lines_;
    bool pauses_ = true;
};

// Columns that a text takes: its characters, where a UTF-8 character of several bytes is one.
int columns_of(std::string_view text);

}  // namespace velda
