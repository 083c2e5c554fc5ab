// COPY with its two forced targets, COUNT, LIST.
#include <unistd.h>

#include "commands/actions.h"
#include "commands/record_list.h"
#include "fileutil/fileutil.h"

namespace velda::commands {

namespace {

enum CopyTarget { CopyAsAsked = 0, CopyToTerminal = 1, CopyToPrinter = 2 };

void copy_command(DP *dp, CopyTarget target) {
    VAR output_flag = static_cast<int>(target);
    VBC_VELDACopyCommand(dp, "V", &output_flag);
}

}  // namespace

void copy(DP *dp, const Words &) { copy_command(dp, CopyAsAsked); }
void copy_to_terminal(DP *dp, const Words &) { copy_command(dp, CopyToTerminal); }
void copy_to_printer(DP *dp, const Words &) { copy_command(dp, CopyToPrinter); }

void count(DP *dp, const Words &) {
    RecordList records(dp);
    VAR key;
    while (records.next(key)) continue;
    crt_line(std::to_string(records.found()) + " records counted");
    records.report_missing();
}

void list(DP *dp, const Words &) {
    RecordList records(dp);
    if (isatty(STDOUT_FILENO))
        heading(cat(records.file_name(), "  'T'  page 'P", records.has_option('N') ? "N'" : "'", AM));
    for (VAR key; records.next(key);) print_line(key);
    print_line(std::to_string(records.found()) + " records listed");
    records.report_missing();
}

}  // namespace velda::commands
