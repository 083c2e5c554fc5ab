// hashed_format.h - what a hashed file keeps in its LMDB environment.
//
// Two named trees: records, and control (the file's settings and the numbered system blocks). A record's key of 1 to
// 510 bytes is LMDB's own key and its record LMDB's own data. LMDB takes no empty key and none longer than 511 bytes,
// so a key of 0 or more than 510 bytes is stored under exactly 511 bytes: the first 501 bytes of the key (padded with
// zeros), its hash, and a number that tells apart keys in which both are equal; the data begin with the whole key.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "runtime/store/hash.h"
#include "runtime/store/lmdb_format.h"

namespace velda::store {

inline constexpr char RecordsTree[] = "records";
inline constexpr char ControlTree[] = "control";
inline constexpr std::string_view SettingsKey = "settings";

inline constexpr std::size_t MaxPlainKeyBytes = lmdb::MaxStoredKeyBytes - 1;
inline constexpr std::size_t LongPrefixBytes = 501;
inline constexpr std::size_t LongHashBytes = 8;    // most significant byte first
inline constexpr std::size_t LongNumberBytes = 2;  // likewise
static_assert(LongPrefixBytes + LongHashBytes + LongNumberBytes == lmdb::MaxStoredKeyBytes);

inline bool is_plain_key(std::string_view key) { return !key.empty() && key.size() <= MaxPlainKeyBytes; }
inline bool is_long_stored_key(std::string_view stored) { return stored.size() == lmdb::MaxStoredKeyBytes; }

// The 511 bytes under which a long key is stored, with number 0.
inline std::string long_stored_key(std::string_view key) {
    std::string stored(key.substr(0, LongPrefixBytes));
    stored.resize(lmdb::MaxStoredKeyBytes, '\0');
    const std::uint64_t hash = long_key_hash(key);
    for (std::size_t i = 0; i < LongHashBytes; ++i)
        stored[LongPrefixBytes + i] = static_cast<char>(hash >> (8 * (LongHashBytes - 1 - i)));
    return stored;
}

// The part that all keys with the same beginning and hash share.
inline std::string_view long_family(std::string_view stored) {
    return stored.substr(0, LongPrefixBytes + LongHashBytes);
}

inline unsigned long_number(std::string_view stored) {
    const auto high = static_cast<unsigned char>(stored[stored.size() - 2]);
    const auto low = static_cast<unsigned char>(stored[stored.size() - 1]);
    return high << 8 | low;
}
inline void set_long_number(std::string &stored, unsigned number) {
    stored[stored.size() - 2] = static_cast<char>(number >> 8);
    stored[stored.size() - 1] = static_cast<char>(number);
}

// The data of a long key: its length (4 bytes, least significant first), the key, the record.
inline constexpr std::size_t LongHeadBytes = 4;

struct LongData {
    std::string_view key;
    std::string_view record;
};

// False when the data are too short for what their head says.
inline bool parse_long_data(std::string_view data, LongData &parts) {
    std::uint32_t key_bytes;
    if (data.size() < LongHeadBytes) return false;
    std::memcpy(&key_bytes, data.data(), LongHeadBytes);
    if (data.size() - LongHeadBytes < key_bytes) return false;
    parts = {data.substr(LongHeadBytes, key_bytes), data.substr(LongHeadBytes + key_bytes)};
    return true;
}

inline std::string_view view_of(const MDB_val &value) {
    return {static_cast<const char *>(value.mv_data), value.mv_size};
}
inline MDB_val value_of(std::string_view bytes) { return {bytes.size(), const_cast<char *>(bytes.data())}; }

}  // namespace velda::store
