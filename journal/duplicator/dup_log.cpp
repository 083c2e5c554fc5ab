// The duplicator's entry: options, slot, specifications and the rules across them, up to the main loop.
#include "journal/duplicator/dup_log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "journal/duplicator/dup_dry_run.h"
#include "journal/duplicator/dup_monitor.h"
#include "journal/duplicator/dup_options.h"
#include "journal/journal.h"
#include "journal/select_parser.h"

namespace velda::journal {

namespace {

constexpr int OperatorSeverity = 256;  // of entries in the administration log that tell of a run
constexpr bool IsInput = false, IsOutput = true;

// A change of the slot that other processes see as a whole. Never held while a specification is parsed: an input socket
// waits there for its sender.
class SlotChange {
  public:
    explicit SlotChange(DP *dp) : dp_(dp) {
        VediLoggerMisc(dp_, VELDA_LOGGER_BEGIN_CHANGE);
        VediLoggerMisc(dp_, VELDA_LOGGER_REFRESH);
    }
    ~SlotChange() {
        VediLoggerMisc(dp_, VELDA_LOGGER_PUBLISH);
        VediLoggerMisc(dp_, VELDA_LOGGER_END_CHANGE);
    }
    SlotChange(const SlotChange &) = delete;
    SlotChange &operator=(const SlotChange &) = delete;

  private:
    DP *dp_;
};

std::vector<std::string> words_of_command(int skipped_words) {
    const VAR sentence = system_number(1000);
    std::vector<std::string> words;
    for (int n = 2 + skipped_words; n <= dcount(sentence, AM); ++n) words.push_back(VAR(sentence(n)).str());
    return words;
}

// The name without its directory.
std::string program_name() {
    const std::string word = command_name();
    return word.substr(word.find_last_of("\\/") + 1);
}

template <std::size_t Size>
void store_text(char (&field)[Size], const std::string &text) {
    std::memset(field, 0, Size);
    text.copy(field, Size - 1);
}

void open_log_file(DP *dp, DupContext &context, const std::string &name) {
    constexpr int AnyoneMayUse = 0666;
    context.logFile =
        VRunFileIOOpen(dp, name.c_str(), VELDA_OPEN_READ_WRITE | VELDA_OPEN_CREATE | VELDA_OPEN_TRUNCATE, AnyoneMayUse);
    if (!context.logFile)
        VELDAfprintf(dp, stderr, "%s: Error, the log file '%s' cannot be opened: %s\n", context.programName.c_str(),
                     name.c_str(), error_words(errno).c_str());
}

void open_error_file(DP *dp, DupContext &context, const std::string &name) {
    context.errorFileName = name;
    auto cell = std::make_unique<VAR>();
    FileWords file(*cell);
    VAR setting;
    if (file.open(name) && VLibFNEWCLEARFILE_IIBB(dp, VELDA_REPORT_ERRORS, cell.get(), &setting) == 1)
        context.errorFile = std::move(cell);
    else
        VELDAfprintf(dp, stderr, "%s: Error, the error file '%s' cannot be opened: %s\n", context.programName.c_str(),
                     name.c_str(), error_words(static_cast<int>(system_number(0).to_integer())).c_str());
}

void take_options(DP *dp, DupContext &context, const DupOptions &options) {
    context.maxErrors = options.max_errors;
    context.progressEvery = options.progress_every;
    context.verboseLevel = options.verbose_level;
    context.exclusive = options.exclusive;
    context.future = options.future;
    if (!options.log_file.empty()) open_log_file(dp, context, options.log_file);
    if (!options.error_file.empty() && !context.dryRun) open_error_file(dp, context, options.error_file);
}

// 0, or the error when there is no free slot.
int take_slot(DP *dp, DupContext &context) {
    const SlotChange change(dp);
    DupStatusSlot *const slot = VELDALoggerStatusAllocate(dp);
    if (!slot) return errno;
    VELDALoggerConfig &config = *logger_context(dp).config;
    context.slot = slot;
    context.watch = &config.dupWatches[slot - config.dupSlots];
    *context.watch = {};
    return 0;
}

void start_monitor(DP *dp, DupContext &context, const VELDADupOptions &extra) {
    const bool on_terminal = extra.terminal_progress && context.progressEvery == 0;
    if (!extra.json_progress && !on_terminal) return;
    context.monitor = RunMonitor::start(dp, context, extra.json_progress, on_terminal);
    if (!context.monitor) DupExit(dp, ExitBadSpecification);
}

// Where a terminal is the output, the stream goes to standard output, which has to be there.
void check_console(DP *dp, const LogSelect &output) {
    constexpr int StandardOutput = 1;
    if (output.deviceType != Tty || velda_write(dp, StandardOutput, "", 0) == 0) return;
    VELDAfprintf(dp, stderr, "Cannot open CONOUT, error %d\n", errno);
    DupExit(dp, ExitNoJournal);
}

// Parses one of the specifications; a failure ends the run.
LogSelect *parse(DP *dp, const std::string &text, bool is_output, bool is_trial) {
    VAR fault;
    LogSelect *const select = start_selection(dp, text.c_str(), is_output, &fault, is_trial);
    if (!select) {
        if (!fault.empty()) DupReport(dp, nullptr, nullptr, Severity::Error, "%s", fault.str().c_str());
        DupExit(dp, ExitBadSpecification);
    }
    return select;
}

void parse_input(DP *dp, DupContext &context, const std::string &text) {
    {
        const SlotChange change(dp);
        store_text(context.slot->inputSpec, text);
    }
    context.input = parse(dp, text, IsInput, false);
    const SlotChange change(dp);
    context.slot->inputDevice = context.input->deviceType;
    publish_position(context);
}

const char *broken_rule(const LogSelect &input, const LogSelect &output, const VELDALoggerConfig &config) {
    if (output.deviceType != LogSetDevice) return nullptr;
    if (input.deviceType == LogSetDevice) return "You cannot have both INPUT and OUTPUT as log sets";
    if (static_cast<std::uint32_t>(output.set) != config.currentSet)
        return "The OUTPUT set specification MUST be to the current set";
    if (output.startTime != 0 || output.endTime != 0)
        return "The OUTPUT set specification cannot have any start or end times";
    return nullptr;
}

void parse_output(DP *dp, DupContext &context, const std::string &text, bool is_trial) {
    context.output = parse(dp, text, IsOutput, is_trial);
    if (const char *const rule = broken_rule(*context.input, *context.output, *logger_context(dp).config)) {
        DupReport(dp, nullptr, nullptr, Severity::Error, "%s", rule);
        DupExit(dp, ExitBadSpecification);
    }
    const SlotChange change(dp);
    store_text(context.slot->outputSpec, text);
    context.slot->outputDevice = context.output->deviceType;
    context.slot->inputFlags = context.input->flags;
    context.slot->outputFlags = context.output->flags;
}

void warn_of_others(DP *dp) {
    const int copies = VELDALoggerStatusCountDatabase(dp);
    if (copies > 1)
        DupReport(dp, nullptr, nullptr, Severity::Warning,
                  "There are %d copies of vlogdup restoring to the database simultaneously", copies);
}

void tell_of_begin(DP *dp, const DupContext &context, const DupSpecifications &texts) {
    const char *const program = context.programName.c_str();
    DupReport(dp, nullptr, nullptr, Severity::Status, "Begin %s process: From set '%s' to  set '%s'", program,
              texts.input.c_str(), texts.output.c_str());
    VediLoggerError(dp, OperatorSeverity, "Begin %s process\n\tFrom set '%s' to  set '%s'", program,
                    texts.input.c_str(), texts.output.c_str());
}

[[noreturn]] void run(DP *dp, DupContext &context, const DupOptions &options, const VELDADupOptions &extra) {
    if (extra.dry_run) context.dryRun = std::make_unique<DryRun>();
    take_options(dp, context, options);
    if (const int error = take_slot(dp, context)) DupExit(dp, error);
    start_monitor(dp, context, extra);
    const auto texts = read_specifications(dp, context.programName, options.operands);
    if (!texts) DupExit(dp, ExitBadSpecification);
    set_status_text(dp, "Initialising");
    parse_input(dp, context, texts->input);
    parse_output(dp, context, texts->output, extra.dry_run != 0);
    context.initialised = 1;
    warn_of_others(dp);
    check_console(dp, *context.output);
    context.useSelectList = VRunCountDefaultSel(dp) > 0;
    tell_of_begin(dp, context, *texts);
    VediLoggerMisc(dp, LoggerFreshView);
    DupExit(dp, run_duplicator(dp));
    exit_command(ExitDone);
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int DupLog(DP *dp) { return velda_dup_log(dp, nullptr); }

int velda_dup_log(DP *dp, const VELDADupOptions *given) {
    constexpr VELDADupOptions None = {};
    const VELDADupOptions &extra = given ? *given : None;
    const std::string program = program_name();
    const auto options = extra.help ? DupOptions{.verbose_help = true}
                                    : read_options(dp, program, words_of_command(extra.skipped_words));
    if (!options) return ExitBadSpecification;
    if (options->concise_help || options->verbose_help) {
        print_help(dp, program, options->verbose_help);
        return ExitDone;
    }
    if (!ensure_logger(dp)) {
        VELDAfprintf(dp, stderr, "Error number %d reading the logger configuration\n", errno);
        velda::exit_command(ExitNoJournal);
    }
    DupContext &context = start_dup_context(dp);
    context.programName = program;
    run(dp, context, *options, extra);
}
