// keys.h - key tables and key sequences as visible text in tests.
#pragma once

#include <cstdio>
#include <string>

#include "frame/key_table.h"
#include "tests/support/command.h"

namespace velda::test {

// Control bytes as ^A, ESC as ^[, bytes of 127 and above as \ooo.
inline std::string visible_keys(std::string_view bytes) {
    std::string visible;
    for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        char text[8];
        std::snprintf(text, sizeof text, code < 32 ? "^%c" : code >= 127 ? "\\%o" : "%c", code < 32 ? code + 64 : code);
        visible += text;
    }
    return visible;
}

inline VAR &table_element(DP *dp, frame::KeyTableElement element) {
    const frame::UtilityCommon utility(dp);
    return utility[static_cast<frame::UtilityCell>(static_cast<int>(frame::CommandXref) + element - 1)];
}

// What the terminal sends for a key, as SYSTEM(1005) tells; "" when it has none.
inline VAR capability(std::string_view name) {
    const VAR keys = system_number(1005);
    const auto at = locate(name, keys, 1);
    return at ? VAR(keys(2, *at)) : VAR("");
}

// The key table as "SEQUENCE=CODE " for each entry.
inline std::string table_text(DP *dp) {
    const VAR &sequences = table_element(dp, frame::KeySequences);
    const VAR &codes = table_element(dp, frame::KeyCodes);
    EXPECT_EQ(dcount(sequences, AM), dcount(codes, AM)) << "the lists are out of step";
    std::string text;
    for (int entry = 1; entry <= dcount(codes, AM); ++entry)
        text += visible_keys(sequences(entry).view()) + "=" + codes(entry).str() + " ";
    return text;
}

// Element 3: "name=value " for each setting.
inline std::string settings_text(DP *dp) {
    std::string text;
    const VAR &settings = table_element(dp, frame::KeySettings);
    for (int entry = 1; entry <= dcount(settings, AM); ++entry)
        text += settings(entry, 1, 1).str() + "=" + visible_keys(settings(entry, 1, 2).view()) + " ";
    return text;
}

inline std::string type_ahead_text(DP *dp) { return visible_keys(table_element(dp, frame::KeyTypeAhead).view()); }

inline void set_type_ahead(DP *dp, std::string_view bytes) { table_element(dp, frame::KeyTypeAhead) = bytes; }

inline void command_init(DP *dp) { VBC_VELDACommandInit(dp, ""); }

// One call of CommandNext as "CODE STRING".
inline std::string command_next(DP *dp, int timeout_tenths) {
    VAR Command = "old", String = "old", UserTimeout = timeout_tenths;
    VBC_VELDACommandNext(dp, "VVV", &Command, &String, &UserTimeout);
    return Command.str() + " " + visible_keys(String.view());
}

}  // namespace velda::test
