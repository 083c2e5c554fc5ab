// input.h - where INPUT gets a line: stacked data first, then the terminal with its line editing, or the pipe or file
// in the terminal's place. Private to the runtime.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

inline constexpr int SingleKey = 0;  // a length: one key is the whole reply, Return is not awaited
inline constexpr int NoLimit = -2;   // a length

struct LineRequest {
    int length = NoLimit;  // SingleKey, the greatest number of bytes, or below 0 for no limit
    bool prompt_shown = true;
    bool newline_shown = true;             // after the reply
    std::optional<int> idle_milliseconds;  // gives up when no key comes for so long; empty: never
};

enum class LineOutcome { Line, Timeout, End };

struct LineRead {
    LineOutcome outcome;
    std::string text;  // what was typed so far when the outcome is Timeout
};

// Reads one line. What it shows on the screen follows the context's prompt and echo. A program that goes on asking
// after the input has ended is stopped with a message, so that it does not ask for ever.
LineRead read_line(DP *dp, const LineRequest &request);

// Reads a line of at most `limit` bytes past stacked data, with no prompt and nothing shown; on a terminal each of the
// bytes `ends` ends it as Return does.
LineRead read_quietly(DP *dp, int limit, std::string_view ends);

// SYSTEM(10) and SYSTEM(14): whether stacked data waits, and how many characters wait, stacked or typed ahead. Each
// stacked line counts its return.
bool stacked_data_waits(DP *dp);
int characters_waiting(DP *dp);

// Counts reads in a row that found the input ended; stops the command when there were too many.
void note_end_of_input(DP *dp);
void note_input(DP *dp);

// Writes a message on the last line of the screen and puts the cursor back; as a line where the terminal cannot.
void show_at_foot(DP *dp, std::string_view message);

}  // namespace velda
