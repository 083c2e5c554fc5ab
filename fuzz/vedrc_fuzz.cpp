// Initialisation records of the key table, and keys read through what they made of it: the first line feed that stands
// alone divides the record from the keys. The table's lists stay in step, and each command takes at least one key.
#include <cstdlib>
#include <string>
#include <string_view>

#include "frame/key_table.h"
#include "fuzz/silence.h"

namespace {

using namespace velda;
using namespace velda::frame;

void check(bool holds) {
    if (!holds) std::abort();
}

struct Input {
    std::string record;
    std::string keys;
};

void check_table(const KeyTable &table) {
    check(dcount(table[KeySequences], AM) == table.entries());
    for (int entry = 1; entry <= table.entries(); ++entry) {
        check(!table[KeySequences](entry).empty());
        check(table[KeyCodes](entry).is_numeric() || table[KeyCodes](entry) == PrefixCode);
    }
}

void read_keys(DP *dp, const KeyTable &table) {
    VAR Command, String, UserTimeout = 1;
    while (!table[KeyTypeAhead].empty()) {
        const std::size_t left = table[KeyTypeAhead].size();
        VBC_VELDACommandNext(dp, "VVV", &Command, &String, &UserTimeout);
        check(table[KeyTypeAhead].size() < left);
        check(Command.is_numeric() && !String.empty());
    }
}

void work(DP *dp, const Input &input) {
    const UtilityCommon utility(dp);
    const KeyTable table(utility);
    VBC_VELDACommandInit(dp, "");
    apply_settings(table, TerminalKeys(), convert(input.record, "\n", AM));
    check_table(table);
    table[KeyTypeAhead] = input.keys;
    read_keys(dp, table);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const Silence silence;
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const std::size_t end = std::min(bytes.find("\n\n"), size);
    Input input{std::string(bytes.substr(0, end)), std::string(bytes.substr(std::min(end + 2, size)))};
    velda_run(
        velda_getdp(), "FUZZ", [](DP *dp, void *argument) { work(dp, *static_cast<Input *>(argument)); }, &input);
    return 0;
}
