// package_record.h - how a package becomes a record of the file PACKAGES, and the dictionary that tells its attributes.
#pragma once

#include <runtime/vutil.h>

#include "dpkg_status.h"

// One attribute of a PACKAGES record: the field of the package list it comes from, and its dictionary item.
struct PackageAttribute {
    int number;
    const char *name;     // key of the dictionary item
    const char *field;    // field of the stanza; the two dependency attributes share one
    const char *heading;  // column heading
    const char *format;   // output format: justification and width
    enum class Kind { Text, Lines, DependencyNames, DependencyVersions } kind;
};

// In the order of the attributes; the record holds exactly these.
extern const PackageAttribute PackageAttributes[];
extern const int PackageAttributeCount;

// The key of a package: its name; a package of a list that holds several versions or architectures of a name is told
// apart by its caller.
std::string package_key(const Stanza &stanza);

// The record of a package. Dependencies are values, their alternatives sub-values; the names stand in one attribute and
// the version conditions at the same positions in the next. A multi-line field has one line a value.
VAR package_record(const Stanza &stanza);

// The dictionary item of an attribute: D, attribute number, conversion, heading, format, S or M.
VAR dictionary_item(const PackageAttribute &attribute);
