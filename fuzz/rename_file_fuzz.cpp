// Files of renames: each line adds a pair of paths that are not empty, adds nothing, or ends the reading.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/silence.h"
#include "journal/select_parser.h"

namespace {

using namespace velda;
using namespace velda::journal;

void check(bool holds) {
    if (!holds) std::abort();
}

std::string file_with(std::string_view text) {
    static const std::string name = "rename_file_fuzz." + std::to_string(getpid());
    std::FILE *const file = std::fopen(name.c_str(), "wb");
    check(file && std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fclose(file) == 0);
    return name;
}

void work(DP *dp, std::string_view text) {
    const std::string name = file_with(text);
    LogSelect select;
    const int error = LoggerReadRenameFile(dp, select, name);
    unlink(name.c_str());
    check(error == 0 || error == 22);
    check(select.renames.size() <= static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
    for (const RenamePair &pair : select.renames) {
        check(!pair.from.empty() && !pair.to.empty() && pair.from.size() + pair.to.size() < 1024);
        check((pair.from + pair.to).find_first_of(" \t,;\n") == std::string::npos);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const Silence silence;
    std::string_view text(reinterpret_cast<const char *>(data), size);
    velda_run(
        velda_getdp(), "FUZZ", [](DP *dp, void *argument) { work(dp, *static_cast<std::string_view *>(argument)); },
        &text);
    return 0;
}
