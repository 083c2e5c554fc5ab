// vlogdup, vlogkill, and duplicators in vlogstatus.
#include <fcntl.h>
#include <signal.h>
#include <time.h>

#include <regex>

#include "journal/duplicator/dup_log.h"
#include "tests/commands/fixture.h"
#include "tests/support/terminal_program.h"

using velda::test::CommandTest;
using velda::test::Ran;

namespace {

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

std::string content(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Waits until something holds, for ten seconds at most.
template <class Condition>
bool eventually(Condition condition) {
    for (int tries = 0; tries < 500; ++tries) {
        if (condition()) return true;
        usleep(20000);
    }
    return false;
}

// A program in the background; killed with the object if it still runs.
class Background {
  public:
    Background(const std::string &program, const std::vector<std::string> &words, const std::string &output) {
        process = fork();
        if (process != 0) return;
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        std::vector<char *> arguments = {const_cast<char *>(program.c_str())};
        for (const std::string &word : words) arguments.push_back(const_cast<char *>(word.c_str()));
        arguments.push_back(nullptr);
        execv(program.c_str(), arguments.data());
        _exit(127);
    }
    ~Background() {
        if (process > 0 && kill(process, SIGKILL) == 0) wait();
    }
    Background(const Background &) = delete;
    Background &operator=(const Background &) = delete;

    // Its exit code.
    int wait() {
        int status = 0;
        waitpid(process, &status, 0);
        process = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    pid_t process;
};

class Duplicator : public CommandTest {
  protected:
    void SetUp() override {
        CommandTest::SetUp();
        setenv("TZ", "UTC", 1);
        unsetenv("VBCLOGCONFDIR");
    }

    // A journal of two sets, switched on, the first one written.
    void make_journal() {
        for (const std::string set : {"1", "2"})
            ASSERT_EQ(velda({"vlogadmin", "set-file", set, "1", system_ / ("set" + set), "create"}).code, 0);
        ASSERT_EQ(velda({"vlogadmin", "switch", "1"}).code, 0);
        ASSERT_EQ(velda({"vlogadmin", "status", "active"}).code, 0);
    }

    Ran duplicate(std::vector<std::string> words) {
        words.insert(words.begin(), "vlogdup");
        return velda(words);
    }

    std::string waiting_input() const { return "set=current terminate=wait retry=1"; }

    // A duplicator that waits at the end of the journal.
    std::unique_ptr<Background> waiting_duplicator(const std::string &output = "set=null") {
        auto run = std::make_unique<Background>(
            program(),
            std::vector<std::string>{"vlogdup", "INPUT", "set=current", "terminate=wait", "retry=1", "OUTPUT", output},
            system_ / "duplicator.out");
        EXPECT_TRUE(eventually([&] {
            return contains(velda({"vlogstatus", "--json"}).output,
                            "\"pid\": " + std::to_string(run->process) + ", ") &&
                   contains(content(system_ / "duplicator.out"), "Begin vlogdup process");
        })) << content(system_ / "duplicator.out");
        return run;
    }
};

std::string joined(std::string program) {
    std::string text;
    for (std::string line : velda::journal::ConciseHelp) {
        if (const std::size_t at = line.find("%s"); at != line.npos) line.replace(at, 2, program);
        if (const std::size_t at = line.find("%d"); at != line.npos) line.replace(at, 2, "10000");
        text += line + "\n";
    }
    return text;
}

}  // namespace

// --- help -----------------------------------------------------------------------------------------------------------

TEST_F(Duplicator, TheConciseHelpIsWordForWord) {
    const std::string expected =
        "Usage: Called as:\n"
        "   vlogdup: {-options} INPUT input_spec OUTPUT output_spec\n"
        "Where {-options} can be one or more of :\n"
        "  -efilename     Error file for database update errors\n"
        "  -f             Used with -v or -V, show Future update not Past update\n"
        "  -h             Display the concise help screen\n"
        "  -lfilename     Log file name to write all status and errors information\n"
        "  -mnn           Maximum number of errors (default 10000)\n"
        "  -unn           Write '*' to the screen every nn input records\n"
        "  -v             verbose output , 1 line per record\n"
        "  -x             eXclusive use of the database , no group locks taken\n"
        "  -H             Display the verbose help screen\n"
        "  -V             Very verbose output , 1 line per record\n";
    for (const char *const option : {"-h", "-?", "-vh"}) {
        const Ran ran = duplicate({option});
        EXPECT_EQ(ran.code, 0) << option;
        EXPECT_EQ(ran.output, expected) << option;
    }
}

constexpr char AddedHelp[] =
    R"(Where 'input_spec' and 'output_spec' can be one or more of the following :
  blockmax=nnn (S)           The maximum size, in blocks, of a serial device
  blocksize=nnn              The block size to read or write data to/from a TTY or SERIAL device or file
  device=file|device (S)     Provide the name of a file or device for a SERIAL device. Can be more than one of these
  encrypt=true(O)            Output transfer is to be encrypted
  end=timespec (I)           Specify a time specification (see later) to end the input data at
  hostname=host(IOK)         Host for socket transfers to / from
  key=encryptkey             The key to use for encryption
  noflush{=true|false} (O)   End of transaction causes the output buffer to be flushed immediately
  notrans{=true|false} (O)   All transaction boundaries will be ignore if true (default false)
  port=portnum (IOK)         Socket port to use for socket transfer
  prompt{=true|false}        When switching serial devices or files, always prompt user first
  rename=fromdir,todir (O)   Path names will be converted from 'fromdir' to 'todir'
  renamefile=filename (O)    Specifies a file with a list of renames in the format 'fromdir,todir'
  retry=nn (I)               When 'terminate=wait' used, the time interval between retry attempts
  scheme=method              Encryption method for socket transfers
  set=current (I) (L)        Begin using the current log set as input
  set=database (O) (D)       The output should update the database i.e. a restore process
  set=eldest (I) (L)         Begin using the log set that has the eldest entries in it
  set=n (I) (L) (N)          Begin using log set number n
  set=null (O)               Output is to NULL i.e. discarded
  set=serial (S)             The input/output is to a serial device or file - requires one or more 'device=file|device'
  set=socket (IOK)           Input/output is to a socket
  set=stdin (I) (T)          The input data comes from the terminal stdin
  set=stdout (O) (T)         The output data goes to the terminal stdout
  set=tty (T)                The input is from stdin or the output data is to stdout
  set=logset (O) (L)         The output will be placed on the current log set as though a native update
  start=timespec (I)         Specify a time specification (see later) to start the input data at
  terminate=eof (I)          Switch to elder log sets as necessary and only terminate on very eldest update
  terminate=eos (I)          Terminate program when the log set first processed is exhausted
  terminate=wait (I)         Switch to elder log sets as necessary and wait for new updates when exhausted
  terminate=waiteos (I)      Switch to elder log sets as required and wait for new updates until logset switched, then terminate
  timeout=nnn (I)            Provides a timeout for 'terminate=wait' in seconds
  verbose{=true|false}       Display to stderr a summary of the specification
  (D) shows we assume the device type is DATABASE
  (I) shows it is only valid for an INPUT device
  (L) shows we assume the device type is LOG SET
  (N) shows we assume the device type is NULL
  (O) shows it is only valid for an INPUT device
  (S) shows we assume the device type is SERIAL
  (T) shows we assume the device type is TTY
timespec (used in start= and end=) can be one of the following :
  nn:nn:nn                   Time of day (todays date assumed)
  DD-MMM-YYYY                Date (midnight assumed). Any date convention accepted
  nn:nn:nn,DD-MM-YYYY        Both time and date specified (or the other way around)
  filename                   Name of file create with 'vbackup -sfilename' -- the time vbackup started is used
  filename                   Any other normal file , the time the file last modified is used
)";

TEST_F(Duplicator, TheVerboseHelpAddsTheSpecificationsToTheConciseOne) {
    const Ran ran = duplicate({"-H"});
    EXPECT_EQ(ran.code, 0);
    ASSERT_TRUE(ran.output.starts_with(joined("vlogdup")));
    EXPECT_EQ(ran.output.substr(joined("vlogdup").size()), AddedHelp);
}

TEST_F(Duplicator, HelpEndsTheReadingOfOptionsAndNeedsNoJournal) {
    EXPECT_EQ(duplicate({"-h", "-Z"}).code, 0);
    EXPECT_FALSE(std::filesystem::exists(system_ / "config/vediLoggerConfig"));
    EXPECT_EQ(duplicate({"-Z", "-h"}).code, 2);
}

TEST_F(Duplicator, ItsOwnHelpAddsTheLongOptions) {
    const Ran ran = duplicate({"--help"});
    EXPECT_EQ(ran.code, 0);
    EXPECT_TRUE(ran.output.starts_with(duplicate({"-H"}).output));
    for (const char *const option : {"--json-progress FILE", "--dry-run", "--no-progress", "--help"})
        EXPECT_TRUE(contains(ran.output, option)) << option;
}

// --- wrong calls ----------------------------------------------------------------------------------------------------

TEST_F(Duplicator, WrongOptionsHaveExitCodeTwo) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> calls = {
        {{"-Z"}, "vlogdup: illegal option -- Z\n"},
        {{"-vxQ"}, "vlogdup: illegal option -- Q\n"},
        {{"-e"}, "vlogdup: option requires an argument -- e\n"},
        {{"-vl"}, "vlogdup: option requires an argument -- l\n"},
        {{"-m", "ten"}, "vlogdup: 'ten' is not a number -- m\n"},
        {{"-m-5"}, "vlogdup: '-5' is not a number -- m\n"},
        {{"-u99999999999"}, "vlogdup: '99999999999' is not a number -- u\n"},
        {{"--no-such"}, "vlogdup: unknown option '--no-such'"},
        {{"--json-progress"}, "vlogdup: --json-progress needs a file"},
    };
    for (const auto &[words, message] : calls) {
        const Ran ran = duplicate(words);
        EXPECT_EQ(ran.code, 2) << words[0];
        EXPECT_TRUE(ran.output.starts_with(message)) << ran.output;
    }
}

TEST_F(Duplicator, AWordBeforeInputAndOutputIsRefused) {
    const Ran ran = duplicate({"set=1", "INPUT", "set=1"});
    EXPECT_EQ(ran.code, 2);
    EXPECT_TRUE(ran.output.starts_with("vlogdup: Error, set=1 is defined BEFORE any INPUT or OUTPUT keyword\n"))
        << ran.output;
}

TEST_F(Duplicator, BothSpecificationsAreNeeded) {
    for (const std::vector<std::string> &words : {std::vector<std::string>{}, {"INPUT"}, {"OUTPUT", "set=null"}}) {
        const Ran ran = duplicate(words);
        EXPECT_EQ(ran.code, 2);
        EXPECT_TRUE(ran.output.starts_with("vlogdup: Error, no INPUT set specification defined\n")) << ran.output;
    }
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"INPUT", "set=1"}, {"input", "set=1", "output"}}) {
        const Ran ran = duplicate(words);
        EXPECT_EQ(ran.code, 2);
        EXPECT_TRUE(ran.output.starts_with("vlogdup: Error, no OUTPUT set specification defined\n")) << ran.output;
    }
}

TEST_F(Duplicator, AWrongSpecificationIsReportedAsAnErrorWithExitCodeTwo) {
    make_journal();
    const Ran input = duplicate({"INPUT", "nonsense", "OUTPUT", "set=null"});
    EXPECT_EQ(input.code, 2);
    EXPECT_TRUE(
        contains(input.output, " : ERROR: \n    Error: For command 'nonsense': The command is not recognised\n"))
        << input.output;
    const Ran output = duplicate({"INPUT", "set=1", "OUTPUT", "set=3"});
    EXPECT_EQ(output.code, 2);
    EXPECT_TRUE(contains(output.output, "Error: For command 'set=3': Only valid for an INPUT specification\n"));
}

TEST_F(Duplicator, ARenameThatIsIllegalIsReported) {
    make_journal();
    const Ran ran = duplicate({"INPUT", "set=1", "OUTPUT", "set=database", "rename=/a"});
    EXPECT_EQ(ran.code, 2);
    EXPECT_TRUE(contains(ran.output, "Warning: The directory conversion '/a' is illegal\n"));
    EXPECT_TRUE(contains(ran.output, "Error: For command 'rename=/a': The directory conversion '/a' is illegal\n"));
}

TEST_F(Duplicator, InputAndOutputCannotBothBeLogSets) {
    make_journal();
    const Ran ran = duplicate({"INPUT", "set=1", "OUTPUT", "set=logset"});
    EXPECT_EQ(ran.code, 2);
    EXPECT_TRUE(contains(ran.output, "You cannot have both INPUT and OUTPUT as log sets\n")) << ran.output;
}

TEST_F(Duplicator, AJournalThatCannotBeReadHasExitCodeThree) {
    std::filesystem::create_directories(system_ / "config");
    std::ofstream(system_ / "config/vediLoggerConfig") << std::string(79464, 'x');
    const Ran ran = duplicate({"INPUT", "set=1", "OUTPUT", "set=null"});
    EXPECT_EQ(ran.code, 3);
    EXPECT_EQ(ran.output, "Error number 2014 reading the logger configuration\n");
}

TEST_F(Duplicator, ATerminalOutputNeedsStandardOutput) {
    make_journal();
    const Ran ran = run("/bin/sh", {"-c", program() + " vlogdup INPUT set=1 OUTPUT set=stdout >&-"});
    EXPECT_EQ(ran.code, 3);
    EXPECT_TRUE(contains(ran.output, "Cannot open CONOUT, error 9\n")) << ran.output;
}

// --- a run ----------------------------------------------------------------------------------------------------------

TEST_F(Duplicator, ARunTellsOfItsBeginAndEnd) {
    make_journal();
    make_file("F", {{"a", "1"}, {"b", "2"}});
    const Ran ran = duplicate({"INPUT", "set=current", "terminate=eos", "OUTPUT", "set=null"});
    EXPECT_EQ(ran.code, 0);
    const std::regex expected(
        "\\d\\d:\\d\\d:\\d\\d \\d\\d [A-Z]{3} \\d{4} : STATUS: \n"
        "    Begin vlogdup process: From set 'set=current terminate=eos' to  set 'set=null'\n"
        "[^\n]* : STATUS: \n"
        "    Termination Statistics: usr [0-9.]+ , sys [0-9.]+ , elapsed 0m[0-9.]+\n"
        "    INPUT : \\d+ records , 0 blocks , \\d+ record bytes , 0 errors\n"
        "    OUTPUT: 0 records , 0 blocks , 0\tbytes ,\t0 errors\n"
        "[^\n]* : STATUS: \n"
        "    Program terminated. Exit code is 0, Exit Termination Reason = 0x[0-9a-f]{8}\n");
    EXPECT_TRUE(std::regex_match(ran.output, expected)) << ran.output;
    EXPECT_TRUE(contains(content(system_ / "config/vediLoggerAdminLog"), "severity 256: Begin vlogdup process\n"));
    EXPECT_TRUE(contains(content(system_ / "config/vediLoggerAdminLog"),
                         "From set 'set=current terminate=eos' to  set 'set=null'\n"));
}

TEST_F(Duplicator, WordsOfASpecificationAreJoinedByBlanksAndKeywordsCountInAnyCase) {
    make_journal();
    const Ran ran = duplicate(
        {"-J", "ignored", "output", "set=null", "Input", "set=1", "OUTPUT", "type=x", "input", "terminate=eof"});
    EXPECT_EQ(ran.code, 0);
    EXPECT_TRUE(contains(ran.output, "From set 'set=1 terminate=eof' to  set 'set=null type=x'\n")) << ran.output;
}

TEST_F(Duplicator, TheLogFileGetsWhatIsReported) {
    make_journal();
    std::ofstream("log") << "what was there before, longer than all that a run writes" << std::string(5000, 'x');
    const Ran ran = duplicate({"-llog", "INPUT", "set=1", "OUTPUT", "set=null"});
    EXPECT_EQ(ran.code, 0);
    EXPECT_EQ(content("log"), ran.output);
}

TEST_F(Duplicator, ALogFileOrErrorFileThatCannotBeOpenedIsReportedAndTheRunGoesOn) {
    make_journal();
    const Ran ran = duplicate({"-l", "no/such/log", "-e", "NO.SUCH", "INPUT", "set=1", "OUTPUT", "set=null"});
    EXPECT_EQ(ran.code, 0);
    EXPECT_TRUE(ran.output.starts_with(
        "vlogdup: Error, the log file 'no/such/log' cannot be opened: No such file or directory\n"
        "vlogdup: Error, the error file 'NO.SUCH' cannot be opened: No such file or directory\n"))
        << ran.output;
}

TEST_F(Duplicator, TheErrorFileIsCleared) {
    make_journal();
    make_file("ERRORS", {{"old", "error"}});
    EXPECT_EQ(duplicate({"-eERRORS", "INPUT", "set=1", "OUTPUT", "set=null"}).code, 0);
    EXPECT_TRUE(contains(velda({"COUNT", "ERRORS"}).output, "0 ")) << velda({"COUNT", "ERRORS"}).output;
}

TEST_F(Duplicator, ProgressOfEveryRecordIsAskedForByV) {
    make_journal();
    make_file("F", {{"a", "1"}, {"b", "2"}});
    const std::string lines = duplicate({"-v", "INPUT", "set=1", "OUTPUT", "set=null"}).output;
    EXPECT_TRUE(std::regex_search(lines, std::regex("\\d\\*1\\*\\d+\\*\\d+ +WRITE +/[^ ]*/F +a +\n"))) << lines;
    const std::string marks = duplicate({"-u1", "INPUT", "set=1", "OUTPUT", "set=null"}).output;
    EXPECT_TRUE(contains(marks, "**")) << marks;
}

TEST_F(Duplicator, ASecondDatabaseDuplicatorIsWarnedOfTheFirst) {
    make_journal();
    const std::vector<std::string> words = {"INPUT", "set=current", "terminate=eos", "OUTPUT", "set=database"};
    EXPECT_FALSE(contains(duplicate(words).output, "copies of vlogdup"));
    const auto first = waiting_duplicator("set=database");
    const Ran ran = duplicate(words);
    EXPECT_TRUE(contains(ran.output,
                         " : WARNING: \n    There are 2 copies of vlogdup restoring to the database simultaneously\n"))
        << ran.output;
}

TEST_F(Duplicator, ADefaultSelectListNamesTheRecordsToRead) {
    make_journal();
    make_file("F", {{"a", "1"}, {"b", "2"}, {"c", "3"}});
    const std::string lines = duplicate({"-v", "INPUT", "set=1", "OUTPUT", "set=null"}).output;
    std::smatch match;
    ASSERT_TRUE(std::regex_search(lines, match, std::regex("(\\d\\*1\\*\\d+\\*\\d+) +WRITE +[^ ]* +b +\n"))) << lines;
    make_file("KEYS", {});
    std::filesystem::create_directory("list");
    std::ofstream("list/" + match[1].str());
    const Ran ran = velda({"-c", "SELECT list\nvlogdup -v INPUT set=1 OUTPUT set=null"});
    EXPECT_EQ(ran.code, 0) << ran.output;
    EXPECT_TRUE(contains(ran.output, "  b ")) << ran.output;
    EXPECT_TRUE(contains(ran.output, "INPUT : 1 records")) << ran.output;
}

// --- dry run --------------------------------------------------------------------------------------------------------

TEST_F(Duplicator, ADryRunCountsByTypeAndFileAndWritesNothing) {
    make_journal();
    make_file("F", {{"a", "1"}, {"b", "2"}});
    make_file("G", {{"a", "1"}});
    ASSERT_EQ(velda({"CLEAR-FILE", "G"}).code, 0);
    make_file("ERRORS", {{"old", "error"}});
    const Ran ran = velda({"vlogdup", "--dry-run", "-eERRORS", "INPUT", "set=1", "OUTPUT", "set=database",
                           "rename=" + account_ + "," + (system_ / "copy")});
    EXPECT_EQ(ran.code, 0);
    EXPECT_TRUE(contains(ran.output, "Dry run: nothing was written.\n")) << ran.output;
    const auto counted = [&](const std::string &count, const std::string &type, const std::string &file) {
        return std::regex_search(
            ran.output, std::regex(" " + count + "  " + type + " +" + system_.path() + "/copy/" + file + "\n"));
    };
    EXPECT_TRUE(counted("2", "WRITE", "F")) << ran.output;
    EXPECT_TRUE(counted("1", "WRITE", "G")) << ran.output;
    EXPECT_FALSE(std::filesystem::exists(system_ / "copy"));
    EXPECT_TRUE(contains(velda({"COUNT", "ERRORS"}).output, "1 "));
    EXPECT_TRUE(contains(ran.output, "OUTPUT: 0 records , 0 blocks")) << ran.output;
}

TEST_F(Duplicator, ADryRunMakesNoMilestoneFileNoConnectionAndNoDevice) {
    make_journal();
    make_file("F", {{"a", "1"}});
    const Ran sent = velda({"vlogdup", "--dry-run", "INPUT", "set=1", "OUTPUT", "set=socket", "hostname=127.0.0.1",
                            "port=1025", "milestone=stone"});
    EXPECT_EQ(sent.code, 0) << sent.output;
    EXPECT_FALSE(std::filesystem::exists("stone"));
    const Ran device = velda({"vlogdup", "--dry-run", "INPUT", "set=1", "OUTPUT", "device=tape"});
    EXPECT_EQ(device.code, 0) << device.output;
    EXPECT_FALSE(std::filesystem::exists("tape"));
    EXPECT_TRUE(contains(device.output, "would be applied or copied"));
}

TEST_F(Duplicator, ADryRunThatWaitsLeavesItsDeviceAlone) {
    make_journal();
    make_file("F", {{"a", "1"}});
    std::ofstream("tape") << "kept";
    const Ran ran = velda(
        {"vlogdup", "--dry-run", "INPUT", "set=1", "terminate=wait", "timeout=1", "retry=1", "OUTPUT", "device=tape"});
    EXPECT_EQ(ran.code, 0) << ran.output;
    EXPECT_TRUE(contains(ran.output, "would be applied or copied")) << ran.output;
    EXPECT_EQ(content("tape"), "kept");
}

// --- progress -------------------------------------------------------------------------------------------------------

TEST_F(Duplicator, JsonProgressHasALineEachSecondAndOneAtTheEnd) {
    make_journal();
    make_file("F", {{"a", "1"}, {"b", "2"}});
    const Ran ran = velda({"vlogdup", "--json-progress", "progress", "INPUT", "set=current", "terminate=wait",
                           "retry=1", "timeout=2", "OUTPUT", "set=null"});
    EXPECT_EQ(ran.code, 0) << ran.output;
    const std::string lines = content("progress");
    const std::regex line(
        "\\{\"time\": \\d+, \"records\": \\d+, \"bytes\": \\d+, \"rate\": \\d+, \"errors\": 0, \"last_time\": \\d+, "
        "\"lag_records\": 0, \"lag_bytes\": 0, \"lag_seconds\": 0, \"last_error\": null, \"state\": \"[^\"]*\"(, "
        "\"exit_code\": 0)?\\}\n");
    const std::ptrdiff_t matches =
        std::distance(std::sregex_iterator(lines.begin(), lines.end(), line), std::sregex_iterator());
    EXPECT_EQ(matches, std::count(lines.begin(), lines.end(), '\n')) << lines;
    EXPECT_GE(matches, 2) << lines;
    EXPECT_TRUE(lines.ends_with("\"state\": \"ENDED\", \"exit_code\": 0}\n")) << lines;
}

TEST_F(Duplicator, ALineOnTheTerminalShowsTheProgress) {
    make_journal();
    make_file("F", {{"a", "1"}, {"b", "2"}});
    const auto on_terminal = [this](const char *option) {
        return velda::test::OnTerminal([=](DP *) {
            execl(program().c_str(), "velda", "vlogdup", option, "INPUT", "set=current", "terminate=wait", "retry=1",
                  "timeout=2", "OUTPUT", "set=null", nullptr);
        });
    };
    auto shown = on_terminal("-f");
    EXPECT_TRUE(std::regex_search(shown.rest(), std::regex("\r\\d+ records, [0-9.]+ MB, \\d+ a second, 0 s behind, "
                                                           "0 errors, [A-Z][A-Za-z :]*\r")));
    EXPECT_EQ(shown.exit_code(), 0);
    auto with_marks = on_terminal("-u1");
    EXPECT_FALSE(contains(with_marks.rest(), " a second"));
    EXPECT_EQ(with_marks.exit_code(), 0);
}

TEST_F(Duplicator, AProgressFileThatCannotBeOpenedHasExitCodeTwo) {
    make_journal();
    const Ran ran = velda({"vlogdup", "--json-progress", "no/such/file", "INPUT", "set=1", "OUTPUT", "set=null"});
    EXPECT_EQ(ran.code, 2);
    EXPECT_TRUE(contains(
        ran.output, "vlogdup: Error, the progress file 'no/such/file' cannot be opened: No such file or directory\n"))
        << ran.output;
}

// --- vlogstatus -----------------------------------------------------------------------------------------------------

TEST_F(Duplicator, StatusShowsRecordsBytesAndLag) {
    make_journal();
    make_file("F", {{"a", "1"}, {"b", "2"}});
    const auto run = waiting_duplicator();
    const std::regex members(
        "\"status\": \"SLEEPing: Waiting INPUT data\", \"input\": \"set=current terminate=wait retry=1\", "
        "\"records_read\": [1-9]\\d*, \"bytes_read\": [1-9]\\d*, \"input_errors\": 0, \"output\": \"set=null\", "
        "\"records_written\": 0, \"bytes_written\": 0, \"output_errors\": 0, \"records_per_second\": [0-9.]+, "
        "\"last_time\": \\d+, \"lag_records\": 0, \"lag_bytes\": 0, \"lag_seconds\": 0, \"milestone\": null, "
        "\"last_error\": \"\"\\}");
    EXPECT_TRUE(eventually([&] {
        return std::regex_search(velda({"vlogstatus", "--json"}).output, members);
    })) << velda({"vlogstatus", "--json"}).output;
    const std::string metrics = velda({"vlogstatus", "--metrics"}).output;
    const std::string label = "{pid=\"" + std::to_string(run->process) + "\"} ";
    for (const char *const name :
         {"records_read", "bytes_read", "input_errors", "lag_records", "lag_bytes", "lag_seconds"})
        EXPECT_TRUE(contains(metrics, std::string("velda_journal_duplicator_") + name + label)) << name;
    EXPECT_TRUE(contains(metrics, "velda_journal_duplicator_lag_records" + label + "0\n"));
    EXPECT_FALSE(contains(metrics, "velda_journal_duplicator_milestone_seconds" + label));
}

TEST_F(Duplicator, AStoppedDuplicatorFallsBehind) {
    make_journal();
    make_file("F", {{"a", "1"}});
    const auto run = waiting_duplicator();
    ASSERT_EQ(kill(run->process, SIGSTOP), 0);
    make_file("G", {{"a", "1"}, {"b", "2"}, {"c", "3"}});
    const std::string json = velda({"vlogstatus", "--json"}).output;
    EXPECT_TRUE(std::regex_search(json, std::regex("\"lag_records\": ([3-9]|[1-9]\\d)"))) << json;
    EXPECT_TRUE(std::regex_search(json, std::regex("\"lag_bytes\": [1-9]\\d{2,3},"))) << json;
    kill(run->process, SIGCONT);
    EXPECT_TRUE(eventually([&] { return contains(velda({"vlogstatus", "--json"}).output, "\"lag_records\": 0,"); }));
}

TEST_F(Duplicator, StatusShowsTheLastErrorOfTheRunAndNoneOfTheRunBefore) {
    make_journal();
    make_file("F", {{"a", "1"}});
    {
        const auto run = waiting_duplicator("set=database rename=" + account_ + ",/nowhere");
        EXPECT_TRUE(eventually([&] {
            return contains(velda({"vlogstatus", "--json"}).output,
                            "\"last_error\": \"Unable to open file '/nowhere/F' , error value 2\"");
        })) << velda({"vlogstatus", "--json"}).output;
        EXPECT_TRUE(contains(velda({"vlogstatus"}).output, "Unable to open file '/nowhere/F' , error value 2"));
    }
    const auto next = waiting_duplicator();
    EXPECT_TRUE(contains(velda({"vlogstatus", "--json"}).output, "\"last_error\": \"\"}"));
}

// --- vlogkill -------------------------------------------------------------------------------------------------------

TEST_F(Duplicator, AKilledDuplicatorEndsAndTellsBothLogs) {
    make_journal();
    const auto run = waiting_duplicator();
    setenv("VBCPORTNO", "7", 1);
    const Ran killed = velda({"vlogkill", "--wait", "10", std::to_string(run->process)});
    unsetenv("VBCPORTNO");
    EXPECT_EQ(killed.code, 0) << killed.output;
    EXPECT_EQ(run->wait(), 5);
    EXPECT_TRUE(std::regex_search(content(system_ / "duplicator.out"),
                                  std::regex("Process killed by operator: Process id \\d+ from port 7\n")));
    EXPECT_TRUE(contains(content(system_ / "config/vediLoggerAdminLog"), "Kill initiated on vlogdup process id "));
    EXPECT_FALSE(contains(velda({"vlogstatus", "--json"}).output, "\"pid\""));
}

TEST_F(Duplicator, KillAllEndsAllOfThem) {
    make_journal();
    const auto first = waiting_duplicator(), second = waiting_duplicator();
    EXPECT_EQ(velda({"vlogkill", "--wait", "10", "all"}).code, 0);
    EXPECT_NE(first->wait(), 0);
    EXPECT_NE(second->wait(), 0);
    EXPECT_EQ(velda({"vlogkill", "all"}).code, 0);  // none is left
}

// The background jobs of a script ignore the interrupt that comes with the order.
TEST_F(Duplicator, AReceiverThatWaitsForItsSenderCanBeKilledThoughItIgnoresInterrupts) {
    make_journal();
    for (const char *const trap : {"", "trap '' INT;"}) {
        Background run("/bin/sh",
                       {"-c", std::string(trap) + " exec \"$0\" \"$@\"", program(), "vlogdup", "INPUT", "set=socket",
                        "hostname=127.0.0.1", "port=" + std::to_string(20000 + getpid() % 20000), "OUTPUT", "set=null"},
                       system_ / "duplicator.out");
        const std::string pid = std::to_string(run.process);
        ASSERT_TRUE(eventually([&] {
            const std::string json = velda({"vlogstatus", "--json"}).output;
            return contains(json, "\"pid\": " + pid + ", ") &&
                   contains(json, "\"status\": \"Initialising\", \"input\": \"set=socket");
        }));
        EXPECT_EQ(velda({"vlogkill", "--wait", "10", pid}).code, 0) << trap;
        EXPECT_EQ(run.wait(), 5) << trap;
    }
}

TEST_F(Duplicator, ADuplicatorThatSleepsLongCanBeKilledThoughItIgnoresInterrupts) {
    make_journal();
    Background run("/bin/sh",
                   {"-c", "trap '' INT; exec \"$0\" \"$@\"", program(), "vlogdup", "INPUT", "set=current",
                    "terminate=wait", "retry=1000", "OUTPUT", "set=null"},
                   system_ / "duplicator.out");
    ASSERT_TRUE(eventually([&] {
        return contains(velda({"vlogstatus", "--json"}).output, "\"status\": \"SLEEPing: Waiting INPUT data\"");
    }));
    EXPECT_EQ(velda({"vlogkill", "--wait", "10", std::to_string(run.process)}).code, 0);
    EXPECT_EQ(run.wait(), 5);
}

TEST_F(Duplicator, AProcessThatIsNoDuplicatorIsNotKilled) {
    make_journal();
    const Ran ran = velda({"vlogkill", std::to_string(getpid())});
    EXPECT_EQ(ran.code, 1);
    EXPECT_EQ(ran.output, "Error! Process id " + std::to_string(getpid()) + " is not an active vlogdup process\n");
}

TEST_F(Duplicator, WrongCallsOfVlogkillHaveExitCodeTwo) {
    make_journal();
    for (const std::vector<std::string> &words : {std::vector<std::string>{},
                                                  {"x"},
                                                  {"-5"},
                                                  {"0"},
                                                  {"12x"},
                                                  {"--wait"},
                                                  {"--wait", "x", "all"},
                                                  {"--wait", "3"},
                                                  {"All"}}) {
        std::vector<std::string> call = {"vlogkill"};
        call.insert(call.end(), words.begin(), words.end());
        EXPECT_EQ(velda(call).code, 2) << (words.empty() ? "" : words[0]);
    }
}

TEST_F(Duplicator, VlogkillNeedsAJournal) {
    const Ran ran = velda({"vlogkill", "all"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_TRUE(contains(ran.output, "vlogkill: there is no journal: ")) << ran.output;
}
