// table_output.h - rows of attributes as a table for people or as JSON, from one description of the columns.
#pragma once

#include "commands/command.h"

namespace velda::commands {

struct Column {
    int attribute;  // of the row
    std::string_view heading;
    std::string_view json_name;
    bool is_number;  // right-justified, and a number in JSON
};

std::string table_for_people(std::span<const Column> columns, const std::vector<VAR> &rows);
std::string table_as_json(std::span<const Column> columns, const std::vector<VAR> &rows);

}  // namespace velda::commands
