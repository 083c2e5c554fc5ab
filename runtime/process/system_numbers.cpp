#include "runtime/process/system_numbers.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>

#include "runtime/base/global_directory.h"
#include "runtime/config/release_directory.h"
#include "runtime/process/command_level.h"
#include "runtime/process/context.h"
#include "runtime/process/data_stack.h"
#include "runtime/process/process.h"
#include "runtime/process/session_names.h"

namespace velda {
namespace {

std::string temporary_file_name(DP *dp) {
    const Result<std::string> directory = global_subdirectory("tmp");
    const std::string place = directory ? *directory : "/tmp";
    return place + "/job_" + std::to_string(getpid()) + "_" + std::to_string(dp->serial);
}

// "COPY FILE * (ID)" has the options "ID": the last word, when it begins with "(".
std::string option_letters(const std::string &words) {
    const std::size_t mark = words.rfind(AM);
    if (mark == std::string::npos || words.compare(mark + 1, 1, "(") != 0) return "";
    std::string letters = words.substr(mark + 2);
    if (!letters.empty() && letters.back() == ')') letters.pop_back();
    return letters;
}

struct Row {
    int number;
    SystemNumber provide;
};

constexpr Row OwnNumbers[] = {
    {0, [](DP *dp, VAR &target) { target = VAR(dp->last_error); }},
    {10, [](DP *dp, VAR &target) { target = VAR(dp->state<DataStack>().lines.empty() ? 0 : 1); }},
    {15, [](DP *dp, VAR &target) { target = VAR(option_letters(current_level(dp).command_line)); }},
    {19, [](DP *, VAR &target) { target = VAR(account_name()); }},
    {50, [](DP *, VAR &target) { target = VAR(account_name()); }},
    {1000, [](DP *dp, VAR &target) { target = VAR(current_level(dp).command_line); }},
    {1002, [](DP *dp, VAR &target) { target = VAR(temporary_file_name(dp)); }},
    {1007, [](DP *, VAR &target) { target = VAR(user_name()); }},
    {1008, [](DP *, VAR &target) { target = VAR(system_file_name()); }},
    {1011, [](DP *, VAR &target) { target = VAR(release_directory()); }},
    {1012, [](DP *, VAR &target) { target = VAR(global_directory()); }},
    {1015, [](DP *, VAR &target) { target = VAR(user_name()); }},
    {1017, [](DP *, VAR &target) { target = VAR("LINUX"); }},
    {1037, [](DP *, VAR &target) { target = VAR(getpid()); }},
    // A session without a person at its terminal is not asked.
    {1043, [](DP *, VAR &target) { target = VAR(isatty(STDIN_FILENO) ? 0 : 1); }},
};

std::map<int, SystemNumber> &registered_numbers() {
    static std::map<int, SystemNumber> numbers;
    return numbers;
}

}  // namespace

void register_system_number(int number, SystemNumber provide) { registered_numbers()[number] = provide; }

VAR system_number(DP *dp, int number) {
    VAR value(0);
    const auto own = std::find_if(std::begin(OwnNumbers), std::end(OwnNumbers),
                                  [number](const Row &row) { return row.number == number; });
    if (own != std::end(OwnNumbers)) {
        own->provide(dp, value);
    } else if (const auto other = registered_numbers().find(number); other != registered_numbers().end()) {
        other->second(dp, value);
    }
    return value;
}

}  // namespace velda

VAR *VLibESYSTEM_BBI(DP *dp, VAR *target, int number) {
    *target = velda::system_number(dp, number);
    return target;
}
