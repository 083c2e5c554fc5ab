// directory_name.h - how the directory driver names the file of a record.
//
// A key that can be a file name is its own file name, so any directory opens as a file. What cannot be one is written
// with codes: "/" as %2F, the zero byte as %00; the whole keys "", "." and ".." as "%_", "%2E" and "%2E."; a key that
// begins with ".velda-", which is how the driver's own hidden files begin, has %2E for its first byte. A "%" that would
// read as the begin of such a code is written %25. So each key has one name and each name one key.
//
// A name longer than 255 bytes becomes a hidden sub-directory ".velda-long-HASH-NUMBER" with two files, "key" and
// "record"; HASH is the hash of the key as 16 hexadecimal digits, NUMBER tells apart keys of equal hash.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velda::store {

inline constexpr std::string_view LongPrefix = ".velda-long-";
inline constexpr std::size_t MaxNameBytes = 255;

// The file name of a key; it may be longer than the system takes.
std::string encode_name(std::string_view key);

// The key of a file name; nullopt for the driver's own hidden files.
std::optional<std::string> decode_name(std::string_view name);

// ".velda-long-HASH-" of a key.
std::string long_name_family(std::string_view key);

}  // namespace velda::store
