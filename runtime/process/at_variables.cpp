// The @-variables that the logic reads and sets by number.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

#include "runtime/process/command_level.h"
#include "runtime/process/context.h"
#include "runtime/process/process.h"
#include "runtime/process/session_names.h"

namespace {

std::string sentence(DP *dp) {
    std::string words = velda::current_level(dp).command_line;
    std::replace(words.begin(), words.end(), velda::AM, ' ');
    return words;
}

// How a variable gets its value each time it is read; null for one that keeps what was stored.
using Compute = VAR (*)(DP *dp);

struct Row {
    int number;
    Compute compute;
};

constexpr Row Variables[] = {
    {5, [](DP *) { return VAR('\x06'); }},               // the key ctrl-F
    {15, [](DP *) { return VAR(velda::user_name()); }},  // @LOGNAME
    {18, nullptr},                                       // @ID, set by whoever evaluates an expression
    {19, nullptr},                                       // @RECORD, likewise
    {20, nullptr},                                       // @FILENAME, likewise
    {24, [](DP *) { return VAR('\x04'); }},              // the key ctrl-D
    {31, [](DP *) { return VAR(getpid()); }},            // @PID
    {38, [](DP *dp) { return VAR(sentence(dp)); }},      // @SENTENCE
};

constexpr std::size_t VariableCount = std::size(Variables);

struct AtVariables {
    std::array<VAR, VariableCount> cells;
    VAR unknown;
};

}  // namespace

VAR *VLibEATFUNC_BI(DP *dp, int number) {
    AtVariables &variables = dp->state<AtVariables>();
    for (std::size_t i = 0; i < VariableCount; ++i) {
        if (Variables[i].number != number) continue;
        if (Variables[i].compute) variables.cells[i] = Variables[i].compute(dp);
        return &variables.cells[i];
    }
    variables.unknown = VAR("");
    return &variables.unknown;
}
