// Times of specifications: as text, and as the lines of a file that stands for a time.
#include <unistd.h>

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

// A file of this process that holds the input.
std::string file_with(std::string_view text) {
    static const std::string name = "time_text_fuzz." + std::to_string(getpid());
    std::FILE *const file = std::fopen(name.c_str(), "wb");
    check(file && std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fclose(file) == 0);
    return name;
}

void work(DP *dp, std::string_view text) {
    TimeOperand written;
    const std::string operand(text.substr(0, text.find('\0')));
    if (operand.find('/') == operand.npos && operand.find('\\') == operand.npos &&
        LoggerParseTime(dp, operand, written))
        check(written.stamp != 0 || written.date > 0 || (written.time >= 0 && written.time <= 86400));
    const std::string name = file_with(text);
    check(LoggerFileStamp(dp, name, "Started UTC", ":") >= 0);
    check(LoggerFileStamp(dp, name, "Receiver Milestone", "(UTC") >= 0);
    TimeOperand of_file;
    check(LoggerParseTime(dp, name, of_file) && of_file.stamp > 0);
    unlink(name.c_str());
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
