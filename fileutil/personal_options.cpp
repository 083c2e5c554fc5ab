// The options that a user keeps in the record .velda_options of the home directory.
#include "fileutil/fileutil.h"

using namespace velda;

namespace {

constexpr const char *OptionsRecord = ".velda_options";

struct PersonalOption {
    std::string_view line;
    int flag;
};

constexpr PersonalOption PersonalOptions[] = {{"CASE", 1}, {"COMMENT", 2}};

VAR options_record() {
    VAR record;
    const VAR home = environment("HOME");
    File directory;
    if (!home.empty() && directory.open(home)) directory.read(record, OptionsRecord);
    return record;
}

// 0 for comments, empty lines and words that are no option.
int flag_of(std::string_view line) {
    for (const PersonalOption &option : PersonalOptions) {
        if (line == option.line) return option.flag;
    }
    return 0;
}

}  // namespace

VBC_SUBROUTINE(VELDAInitialisePersonalOptions, options) {
    int flags = 0;
    const VAR record = options_record();
    const int lines = dcount(record, AM);
    for (int line = 1; line <= lines; ++line) flags |= flag_of(upcase(trim(record(line))).view());
    options = flags;
}
