// COPY: records from one file to another, within a file under new keys, or to the terminal or printer.
#include "fileutil/copy_command.h"

#include <iterator>

#include "fileutil/fileutil.h"

using namespace velda;
using namespace velda::copy;

namespace {

constexpr int InvertShowKeysSetting = 0;  // option I suppresses the keys instead of showing them
constexpr int RecordsNotFound = 2;        // exit code

struct CopyOption {
    char letter;
    const char *help;
};

constexpr CopyOption Options[] = {
    {'A', "Force text mode: newline and attribute mark convert, on the source"},
    {'B', "Force binary mode on source and target"},
    {'D', "Delete each source record once it has been copied"},
    {'F', "New page between records, when the output goes to terminal or printer"},
    {'H', "Suppress the record key line"},
    {'I', "Show each key as it is copied"},
    {'N', "No pause at the end of a page"},
    {'O', "Overwrite an existing target record"},
    {'P', "Send the records to the printer"},
    {'Q', "Quiet: no count at the end and no key lines"},
    {'S', "No line numbers"},
    {'T', "Send the records to the terminal"},
    {'X', "Hexadecimal display"},
};

void show_help() {
    crt_line("COPY {DICT} filename{,section} {recordlist | *} {(Options}");
    crt_line("COPY -? | -h");
    for (const CopyOption &option : Options) crt_line(option.letter, " - ", option.help);
    crt_line("-E before the file name: the records are stored in the editor's compressed form");
    crt_line();
    show_from_help();
}

bool help_asked(const VAR &command_line) {
    VAR words = upcase(command_line);
    words.remove(1);
    return words.empty() || words == "-H" || words == "-?";
}

bool holds(const VAR &text, char byte) { return text.view().find(byte) != std::string_view::npos; }

void read_classic_syntax(DP *dp, CopyJob &job) {
    VAR FileName;
    VAR Options1;
    VAR Operand;
    VBC_VELDAParseCommandLine2(dp, "VVVVVV", &job.SourceFile.cell(), &FileName, &Options1, &job.Options2, &Operand,
                               &job.SourceList.cell());
    job.Options2 = upcase(job.Options2);
    job.compressed = holds(Options1, 'E');
}

void set_options(CopyJob &job, const VAR &OutputFlag) {
    for (const CopyOption &option : Options) job.utility.option(option.letter) = holds(job.Options2, option.letter);
    if (OutputFlag.to_integer() == ToPrinter) job.utility.option('P') = 1;
    if (OutputFlag.to_integer() == ToTerminal) job.utility.option('T') = 1;
    if (emulation(InvertShowKeysSetting)) job.utility.option('I') = !job.has('I');
    printer_off();
}

void set_source_mode(CopyJob &job) {
    if (job.compressed) job.SourceFile.set_mode("RB");
    if (job.has('B'))
        job.SourceFile.set_mode(BinaryMode);
    else if (job.has('A'))
        job.SourceFile.set_mode("RT,WT");
}

[[noreturn]] void close(const CopyJob &job) {
    const int missing = dcount(job.NotFound, AM);
    for (int key = 1; key <= missing; ++key)
        print_line_on(job.print_unit, "'", job.NotFound(key), "' record not found");
    if (job.has('P')) printer_close();
    if (missing > 0) exit_command(RecordsNotFound);
    stop();
}

}  // namespace

VBC_SUBROUTINE(VELDACopyCommand, OutputFlag) {
    const frame::UtilityCommon utility(dp);
    const VAR command_line = system_number(frame::SystemCommandLine);
    if (OutputFlag.to_integer() == ToFile && help_asked(command_line)) {
        show_help();
        stop();
    }
    const VAR words = normalise_words(command_line);
    CopyJob job(utility);
    if (upcase(words(2)) == "FROM")
        read_from_syntax(words, job);
    else
        read_classic_syntax(dp, job);
    set_options(job, OutputFlag);
    set_source_mode(job);
    if (!job.displays() && !get_target(job)) return;
    if (job.displays())
        display_records(job);
    else
        copy_records(job);
    close(job);
}
