// dpkg_status.h - reads the stanza format of Debian's package lists: "Field: value" lines, continuation lines that
// begin with a blank, stanzas divided by empty lines.
#pragma once

#include <istream>
#include <map>
#include <string>

// One stanza: field name -> value; the lines of a continued value are divided by line feeds.
using Stanza = std::map<std::string, std::string>;

// Reads the next stanza. False at the end of the input. A line that is neither a field nor a continuation is skipped.
bool read_stanza(std::istream &input, Stanza &stanza);
