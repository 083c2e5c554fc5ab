// operands.h - what commands share in taking their operands apart and in showing state as JSON.
#pragma once

#include "commands/command.h"

namespace velda::commands {

// Takes the words that begin with "-" off the front of `words`.
Words take_options(Words &words);

// Takes one option off the front or the back of `words`; true when it stood there.
bool take_option(Words &words, std::string_view option);

// The file name that `words` are: "NAME", or "DICT NAME". Anything else is a usage error of `command`.
std::string file_name_operand(std::string_view command, const Words &words);

// Opens a file by its operands; ends the command with the reason when it cannot be opened.
void open_operand(DP *dp, std::string_view command, const Words &words, VAR &file);

// A JSON string literal. Bytes that are no part of valid UTF-8 (marks among them) become \u00XX of their Latin-1 value.
std::string json_string(std::string_view text);

// One JSON object of string and number members, in the order given.
class JsonObject {
  public:
    JsonObject &text(std::string_view name, std::string_view value);
    JsonObject &number(std::string_view name, std::string_view digits);
    std::string str() const { return "{" + members_ + "}"; }

  private:
    JsonObject &member(std::string_view name, const std::string &value);
    std::string members_;
};

// A JSON array, one object a line.
std::string json_array(const std::vector<JsonObject> &objects);

}  // namespace velda::commands
