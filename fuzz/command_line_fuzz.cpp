// Command lines from outside, words divided by attribute marks: the parsers of the frame and COPY's normaliser take every
// word exactly once.
#include <cstdlib>
#include <string>
#include <string_view>

#include "fileutil/copy_command.h"
#include "frame/utility_frame.h"
#include "fuzz/silence.h"

namespace {

using namespace velda;
using namespace velda::frame;

constexpr std::size_t LongestLineBytes = 300;

void check(bool holds) {
    if (!holds) std::abort();
}

// Without marks and blanks: what joining and dividing words leaves as it is.
std::string compact(std::string_view text) { return convert(text, cat(AM, " "), "").str(); }

void check_normaliser(const VAR &line) {
    const VAR words = copy::normalise_words(line);
    check(compact(words.view()) == compact(line.view()));
}

void check_words_alone(DP *dp) {
    VAR Options1, Options2, Operand;
    VBC_VELDAParseCommandLine1(dp, "VVV", &Options1, &Options2, &Operand);
    VAR line = system_number(SystemCommandLine);
    line.remove(1);
    check(compact(cat(Options1, Operand, Options2).view()) == compact(line.view()));
    check(!Operand(1).view().starts_with('-'));
    check(Options2.empty() || Options2.view().starts_with('('));
}

void check_options(DP *dp) {
    VAR Help, Args = system_number(SystemCommandLine), Program = "FUZZ";
    Args.remove(1);
    VBC_VELDAInit(dp, "VVV", &Help, &Args, &Program);
    const UtilityCommon utility(dp);
    for (int word = 1; word <= dcount(utility[CommandArgs], AM); ++word)
        check(!utility[CommandArgs](word).view().starts_with('('));
    for (const char letter : Alphabet)
        check(utility.option(letter) == 1 || (utility.option(letter) == 0 && utility.option_values(letter).empty()));
}

void parse_with_list(DP *dp) {
    VAR FileDSCB, FileName, Options1, Options2, Operand, PassList;
    VBC_VELDAParseCommandLine2(dp, "VVVVVV", &FileDSCB, &FileName, &Options1, &Options2, &Operand, &PassList);
    check(FileDSCB.is_file() && !FileName.empty());
}

void parse_file_name(DP *dp) {
    VAR FileDSCB, FileName;
    VBC_VELDAParseCommandLine3(dp, "VV", &FileDSCB, &FileName);
    check(FileDSCB.is_file() && !FileName.empty());
}

void run(const std::string &sentence, void (*parse)(DP *dp)) {
    velda_run(
        velda_getdp(), sentence.c_str(),
        [](DP *dp, void *argument) { (*reinterpret_cast<void (**)(DP *)>(argument))(dp); }, &parse);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const Silence silence;
    // A path would lead out of the current directory.
    std::string line(reinterpret_cast<const char *>(data), std::min(size, LongestLineBytes));
    line = convert(line, std::string_view("/\\~\0", 4), "").str();
    check_normaliser(line);
    const std::string sentence = "FUZZ\xFE" + line;
    run(sentence, check_words_alone);
    run(sentence, check_options);
    run(sentence, parse_with_list);
    run(sentence, parse_file_name);
    return 0;
}
