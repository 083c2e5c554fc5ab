#include "dpkg_status.h"

namespace {

void add_line(Stanza &stanza, std::string &last_field, const std::string &line) {
    if (line[0] == ' ' || line[0] == '\t') {
        if (!last_field.empty()) stanza[last_field] += "\n" + line.substr(1);
        return;
    }
    const auto colon = line.find(':');
    if (colon == std::string::npos) return;
    last_field = line.substr(0, colon);
    const auto value = line.find_first_not_of(" \t", colon + 1);
    stanza[last_field] = value == std::string::npos ? "" : line.substr(value);
}

}  // namespace

bool read_stanza(std::istream &input, Stanza &stanza) {
    stanza.clear();
    std::string line, last_field;
    while (std::getline(input, line)) {
        if (!line.empty())
            add_line(stanza, last_field, line);
        else if (!stanza.empty())
            return true;
    }
    return !stanza.empty();
}
