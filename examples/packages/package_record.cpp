#include "package_record.h"

#include <iterator>

using Kind = PackageAttribute::Kind;

const PackageAttribute PackageAttributes[] = {
    {1, "STATUS", "Status", "Status", "20L", Kind::Text},
    {2, "VERSION", "Version", "Version", "20L", Kind::Text},
    {3, "ARCHITECTURE", "Architecture", "Arch", "6L", Kind::Text},
    {4, "SECTION", "Section", "Section", "12L", Kind::Text},
    {5, "PRIORITY", "Priority", "Priority", "9L", Kind::Text},
    {6, "INSTALLED.SIZE", "Installed-Size", "Size KiB", "9R", Kind::Text},
    {7, "MAINTAINER", "Maintainer", "Maintainer", "30T", Kind::Text},
    {8, "SOURCE", "Source", "Source", "16L", Kind::Text},
    {9, "DEPENDS", "Depends", "Depends on", "24L", Kind::DependencyNames},
    {10, "DEPENDS.VERSION", "Depends", "Version condition", "16L", Kind::DependencyVersions},
    {11, "RECOMMENDS", "Recommends", "Recommends", "24L", Kind::DependencyNames},
    {12, "RECOMMENDS.VERSION", "Recommends", "Version condition", "16L", Kind::DependencyVersions},
    {13, "HOMEPAGE", "Homepage", "Homepage", "30L", Kind::Text},
    {14, "DESCRIPTION", "Description", "Description", "60T", Kind::Lines},
};
const int PackageAttributeCount = std::size(PackageAttributes);

namespace {

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\n");
    if (first == std::string_view::npos) return "";
    return std::string(text.substr(first, text.find_last_not_of(" \t\n") - first + 1));
}

// "libc6 (>= 2.34)" -> "libc6" or ">= 2.34"; the architecture list in [] stays with the name.
std::string dependency_part(std::string_view alternative, Kind kind) {
    const auto open = alternative.find('(');
    if (kind == Kind::DependencyNames) return trimmed(alternative.substr(0, open));
    if (open == std::string_view::npos) return "";
    const auto close = alternative.find(')', open);
    return trimmed(alternative.substr(open + 1, close - open - 1));
}

// Calls `part(text, position)` for each piece of `text` between delimiters.
template <class Action>
void each_piece(std::string_view text, char delimiter, Action part) {
    int position = 1;
    for (std::size_t start = 0; start <= text.size(); ++position) {
        const auto end = std::min(text.find(delimiter, start), text.size());
        part(text.substr(start, end - start), position);
        start = end + 1;
    }
}

void store_dependencies(VAR &record, const PackageAttribute &attribute, std::string_view text) {
    each_piece(text, ',', [&](std::string_view dependency, int value) {
        each_piece(dependency, '|', [&](std::string_view alternative, int subvalue) {
            record(attribute.number, value, subvalue) = dependency_part(alternative, attribute.kind);
        });
    });
}

void store_attribute(VAR &record, const PackageAttribute &attribute, const std::string &text) {
    switch (attribute.kind) {
        case Kind::Text:
            record(attribute.number) = text;
            break;
        case Kind::Lines:
            each_piece(text, '\n', [&](std::string_view line, int value) { record(attribute.number, value) = line; });
            break;
        case Kind::DependencyNames:
        case Kind::DependencyVersions:
            store_dependencies(record, attribute, text);
            break;
    }
}

bool is_multivalued(Kind kind) { return kind != Kind::Text; }

}  // namespace

std::string package_key(const Stanza &stanza) {
    const auto name = stanza.find("Package");
    return name == stanza.end() ? "" : name->second;
}

VAR package_record(const Stanza &stanza) {
    VAR record;
    for (const PackageAttribute &attribute : PackageAttributes) {
        const auto field = stanza.find(attribute.field);
        if (field != stanza.end()) store_attribute(record, attribute, field->second);
    }
    return record;
}

VAR dictionary_item(const PackageAttribute &attribute) {
    VAR item = "D";
    item(2) = attribute.number;
    item(4) = attribute.heading;
    item(5) = attribute.format;
    item(6) = is_multivalued(attribute.kind) ? "M" : "S";
    return item;
}
