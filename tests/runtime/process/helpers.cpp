#include "tests/runtime/process/helpers.h"

#include <gtest/gtest.h>
#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>

#include "runtime/memory/memory.h"
#include "runtime/process/facade.h"
#include "runtime/process/output.h"

namespace {

int as_command(void (*body)(DP *, void *)) { return velda_run(velda_getdp(), "HELPER", body, nullptr); }

struct Helper {
    std::string_view name;
    int (*run)();
};

constexpr Helper Helpers[] = {
    {"stop", [] { return as_command([](DP *, void *) { velda::stop("201", "OTHER"); }); }},
    {"stop-outside",
     [] {
         velda::write_output(velda_getdp(), "before\n");
         velda::stop("201", "F");
         return 0;
     }},
    // Prints more than any pipe holds.
    {"print",
     [] {
         return as_command([](DP *dp, void *) {
             for (int i = 0; i < 100000; ++i) velda::write_output(dp, "a line of output\n");
         });
     }},
    {"print-and-exit-7",
     [] {
         return as_command([](DP *dp, void *) {
             velda::write_output(dp, std::string(1000000, 'x'));
             velda::exit_command(7);
         });
     }},
    // The handlers are installed by the first command; a signal that was ignored before stays so.
    {"hangup",
     [] {
         return as_command([](DP *, void *) {
             raise(SIGHUP);
             VLibSignalTest(velda_getdp());
         });
     }},
};

}  // namespace

int run_helper(int, char **arguments) {
    for (const Helper &helper : Helpers)
        if (helper.name == arguments[2]) return helper.run();
    std::fprintf(stderr, "no helper '%s'\n", arguments[2]);
    return 99;
}

int main(int count, char **arguments) {
    if (count > 2 && std::string_view(arguments[1]) == "--helper") return run_helper(count, arguments);
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
