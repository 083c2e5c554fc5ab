#include "commands/table_output.h"

#include <algorithm>

#include "commands/operands.h"

namespace velda::commands {

namespace {

// The text of a cell of the table; marks show as blanks.
std::string cell_text(const VAR &row, const Column &column) {
    return convert(VAR(row(column.attribute)), VAR(std::string{AM, VM, SVM}), VAR("   ")).str();
}

std::string padded(std::string text, std::size_t width, bool to_the_right) {
    if (text.size() < width) text.insert(to_the_right ? 0 : text.size(), width - text.size(), ' ');
    return text;
}

std::string without_trailing_blanks(std::string line) { return line.substr(0, line.find_last_not_of(' ') + 1); }

}  // namespace

std::string table_for_people(std::span<const Column> columns, const std::vector<VAR> &rows) {
    std::vector<std::string> lines(rows.size() + 1);
    for (const Column &column : columns) {
        std::size_t width = column.heading.size();
        for (const VAR &row : rows) width = std::max(width, cell_text(row, column).size());
        lines[0] += padded(std::string(column.heading), width, column.is_number) + "  ";
        for (std::size_t n = 0; n < rows.size(); ++n)
            lines[n + 1] += padded(cell_text(rows[n], column), width, column.is_number) + "  ";
    }
    std::string text;
    for (const std::string &line : lines) text += without_trailing_blanks(line) + "\n";
    return text;
}

std::string table_as_json(std::span<const Column> columns, const std::vector<VAR> &rows) {
    std::vector<JsonObject> objects(rows.size());
    for (std::size_t n = 0; n < rows.size(); ++n) {
        for (const Column &column : columns) {
            const std::string value = cell_text(rows[n], column);
            column.is_number ? objects[n].number(column.json_name, value) : objects[n].text(column.json_name, value);
        }
    }
    return json_array(objects) + "\n";
}

}  // namespace velda::commands
