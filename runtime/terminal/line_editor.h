// line_editor.h - the editing of one line of INPUT, key by key, without a terminal. Private to the runtime.
#pragma once

#include <string>

#include "runtime/terminal/device.h"

namespace velda {

class LineEditor {
  public:
    enum class State {
        More,  // the line goes on
        Done,  // the line is complete
        End    // the user has ended the input on an empty line
    };

    // `length` is the greatest number of bytes; below 0 there is no limit.
    LineEditor(const EditingKeys &keys, int length) : keys_(keys), length_(length) {}

    // Takes one key. What is to be shown for it is appended to `shown`.
    State feed(unsigned char key, std::string &shown);

    const std::string &text() const { return text_; }

    // The whole line as it stands on the screen.
    std::string display() const;

  private:
    State take(unsigned char key, std::string &shown);
    void erase_character(std::string &shown);
    void erase_word(std::string &shown);
    void erase_line(std::string &shown);

    EditingKeys keys_;
    int length_;
    bool next_is_literal_ = false;
    std::string text_;
};

// One byte as the screen shows it: control characters as ^X, the marks as ^ ] and \.
std::string display_of(unsigned char byte);

}  // namespace velda
