#include <csignal>

#include "tests/commands/fixture.h"

using velda::test::CommandTest;
using velda::test::Ran;

namespace {

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::string line;
    for (const char byte : text) {
        if (byte != '\n')
            line += byte;
        else
            lines.push_back(line), line.clear();
    }
    if (!line.empty()) lines.push_back(line);
    return lines;
}

}  // namespace

// --- help and wrong input -------------------------------------------------------------------------------------------

TEST_F(CommandTest, EveryCommandAnswersForHelpWithItsNameAndExitCodeZero) {
    const auto names = lines_of(velda({"--names"}).output);
    ASSERT_GE(names.size(), 20u);
    for (const std::string &name : names) {
        const Ran help = velda({name, "-?"});
        EXPECT_EQ(help.code, 0) << name;
        const std::string first = name == "COPY"      ? "COPY {DICT} filename{,section}"
                                  : name == "vlogdup" ? "vlogdup: {-options} INPUT"
                                                      : name + " ";
        EXPECT_TRUE(contains(help.output, first)) << name << help.output;
    }
}

TEST_F(CommandTest, TheOverviewListsEveryCommand) {
    const std::string overview = velda({"--help"}).output;
    EXPECT_EQ(velda({"help"}).output, overview);
    for (const std::string &name : lines_of(velda({"--names"}).output))
        EXPECT_TRUE(contains(overview, name + " ")) << name;
}

TEST_F(CommandTest, AnUnknownCommandIsNamedAndFails) {
    const Ran ran = velda({"NO-SUCH-COMMAND", "X"});
    EXPECT_NE(ran.code, 0);
    EXPECT_TRUE(contains(ran.output, "NO-SUCH-COMMAND")) << ran.output;
}

TEST_F(CommandTest, AnUnknownOptionOfTheProgramIsNamedAndFails) {
    const Ran ran = velda({"--wrong"});
    EXPECT_EQ(ran.code, 2);
    EXPECT_TRUE(contains(ran.output, "'--wrong'")) << ran.output;
}

struct WrongCall {
    std::vector<std::string> words;
    int code;
    std::string message;
};

TEST_F(CommandTest, AWrongCallNamesTheThingAndTheReason) {
    make_file("ORDERS", {{"1", "a"}});
    std::filesystem::create_directory("plain.directory");
    std::ofstream("garbage") << std::string(100000, 'x');
    const WrongCall calls[] = {
        {{"CREATE-FILE"}, 1, "File name expected"},
        {{"CREATE-FILE", "ORDERS"}, 1, "Cannot create file 'ORDERS'"},
        {{"CREATE-FILE", "no/such/directory/F"}, 1, "Cannot create file 'no/such/directory/F'"},
        {{"CREATE-FILE", "TYPE=ODD", "F"}, 1, "'ODD'"},
        {{"CREATE-FILE", "PERMS=9", "F"}, 1, "'9'"},
        {{"CREATE-FILE", "LOG=MAYBE", "F"}, 1, "'MAYBE'"},
        {{"DELETE-FILE"}, 1, "File name expected"},
        {{"DELETE-FILE", "NONE"}, 1, "Cannot delete file 'NONE'"},
        {{"CLEAR-FILE"}, 2, "a file name is missing"},
        {{"CLEAR-FILE", "NONE"}, 1, "Cannot open file 'NONE': No such file or directory"},
        {{"CLEAR-FILE", "ORDERS", "MORE"}, 2, "'MORE' is one word too many"},
        {{"CLEAR-FILE", "DICT"}, 2, "a file name is missing behind 'DICT'"},
        {{"FILE-STATUS", "NONE"}, 1, "Cannot open file 'NONE'"},
        {{"FILE-STATUS", "garbage"}, 1, "Cannot open file 'garbage'"},
        {{"CHECK-FILE", "NONE"}, 1, "Cannot check file 'NONE'"},
        {{"COPY", "NONE", "*"}, 1, "Cannot open file 'NONE'"},
        {{"CT", "NONE", "*"}, 1, "Cannot open file 'NONE'"},
        {{"CP", "NONE", "*"}, 1, "Cannot open file 'NONE'"},
        {{"COUNT"}, 1, "File name expected"},
        {{"COUNT", "NONE"}, 1, "Cannot open file 'NONE'"},
        {{"COUNT", "ORDERS", "1", "2"}, 2, "'2' record not found"},
        {{"LIST", "ORDERS", "3"}, 2, "'3' record not found"},
        {{"SELECT", "NONE"}, 1, "Cannot open file 'NONE'"},
        {{"SAVE-LIST", "A", "B"}, 2, "'B' is one word too many"},
        {{"SAVE-LIST", "A"}, 1, "No list to save"},
        {{"GET-LIST", "A"}, 1, "List 'A' not found"},
        {{"DELETE-LIST"}, 2, "name of a list is missing"},
        {{"DELETE-LIST", "A"}, 1, "List 'A' not found"},
        {{"WHO", "X"}, 2, "'X' is not expected"},
        {{"LISTU", "X"}, 2, "'X' is not expected"},
        {{"vrm"}, 2, "a path is missing"},
        {{"vrm", "-x", "F"}, 2, "unknown option '-x'"},
        {{"vrm", "nothing.there"}, 1, "cannot remove 'nothing.there': does not exist"},
        {{"vrm", "plain.directory"}, 1, "cannot remove 'plain.directory': is a directory"},
        {{"vmv", "A"}, 2, "two paths are needed"},
        {{"vmv", "nothing.there", "B"}, 1, "cannot move 'nothing.there' to 'B': No such file"},
        {{"vkill"}, 2, "one process id is needed"},
        {{"vkill", "abc"}, 2, "'abc' is not a process id"},
        {{"vkill", "-t", "--", "2147483646"}, 1, "process 2147483646: No such process"},
    };
    for (const WrongCall &call : calls) {
        const Ran ran = velda(call.words);
        std::string shown;
        for (const std::string &word : call.words) shown += word + " ";
        EXPECT_EQ(ran.code, call.code) << shown << "\n" << ran.output;
        EXPECT_TRUE(contains(ran.output, call.message)) << shown << "\n" << ran.output;
    }
    EXPECT_EQ(velda({"COUNT", "ORDERS"}).output, "1 records counted\n");
}

// --- files ----------------------------------------------------------------------------------------------------------

TEST_F(CommandTest, CreateFileTakesTheFormsThatTheSystemItselfExecutes) {
    for (const std::vector<std::string> &words :
         std::vector<std::vector<std::string>>{{"CREATE-FILE", "ONE", "1", "11"},
                                               {"CREATE-FILE", "-B\t-L", "-T", "TWO", "1,1", "23,1\t"},
                                               {"CREATE-FILE", "THREE", "PERMS=0666", "LOG=NO", "TYPE=UD"},
                                               {"create-file", "four"}}) {
        EXPECT_EQ(velda(words).code, 0) << words[1];
    }
    EXPECT_TRUE(contains(velda({"FILE-STATUS", "THREE"}).output, "UD"));
    EXPECT_TRUE(contains(velda({"FILE-STATUS", "TWO"}).output, "-B -L -T"));
    EXPECT_EQ(velda({"COUNT", "DICT", "ONE"}).code, 0);
}

TEST_F(CommandTest, DeleteFileRemovesDataAndDictionaryAndClearFileTheRecordsOnly) {
    make_file("ORDERS", {{"1", "a"}, {"2", "b"}});
    EXPECT_EQ(velda({"CLEAR-FILE", "ORDERS"}).code, 0);
    EXPECT_EQ(velda({"COUNT", "ORDERS"}).output, "0 records counted\n");
    EXPECT_EQ(velda({"DELETE-FILE", "ORDERS"}).code, 0);
    EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST_F(CommandTest, FileStatusShowsRecordsAndDurability) {
    make_file("ORDERS", {{"1", "a"}, {"2", "b"}});
    const std::string text = velda({"FILE-STATUS", "ORDERS"}).output;
    EXPECT_TRUE(contains(text, "Records         2\n")) << text;
    EXPECT_TRUE(contains(text, "Durability      lazy\n")) << text;
    const std::string json = velda({"FILE-STATUS", "--json", "ORDERS"}).output;
    EXPECT_TRUE(contains(json, "\"records\": 2, ")) << json;
}

TEST_F(CommandTest, CheckFileReportsDamageAndExitsWithOne) {
    make_file("SOUND", {{"1", "a"}});
    const Ran sound = velda({"CHECK-FILE", "SOUND"});
    EXPECT_EQ(sound.code, 0) << sound.output;
    EXPECT_EQ(sound.output, "1 records could be read, 0 faults\n");
    ASSERT_EQ(velda({"CREATE-FILE", "TORN"}).code, 0);
    for (int n = 0; n < 200; ++n) std::ofstream("many." + std::to_string(n)) << std::string(1000, 'x');
    ASSERT_EQ(velda({"COPY", ".", "*", "(Q"}, "(TORN\n").code, 0);
    std::filesystem::resize_file("TORN", std::filesystem::file_size("TORN") / 2);
    const Ran torn = velda({"CHECK-FILE", "TORN"});
    EXPECT_NE(torn.code, 0) << torn.output;
    EXPECT_NE(velda({"COUNT", "TORN"}).code, 0);
}

// --- records and lists ----------------------------------------------------------------------------------------------

TEST_F(CommandTest, CopyAsksForItsTargetAndTellsHowMany) {
    make_file("ORDERS", {{"1", "a"}, {"2", "b"}});
    ASSERT_EQ(velda({"CREATE-FILE", "OTHER"}).code, 0);
    const Ran ran = velda({"COPY", "ORDERS", "1", "2"}, "(OTHER X Y\n");
    EXPECT_EQ(ran.code, 0);
    EXPECT_TRUE(contains(ran.output, "2 records copied")) << ran.output;
    EXPECT_EQ(velda({"LIST", "OTHER", "X"}).output, "X\n1 records listed\n");
}

TEST_F(CommandTest, CtShowsARecordWithLineNumbersAndCpPrintsIt) {
    make_file("ORDERS", {{"1", "first\nsecond"}});
    EXPECT_EQ(velda({"COPY", "ORDERS", "*", "(Q"}, "\n").code, 0);
    const Ran shown = velda({"CT", "ORDERS", "1"});
    EXPECT_EQ(shown.code, 0);
    EXPECT_TRUE(contains(shown.output, "001 ")) << shown.output;
    EXPECT_EQ(velda({"CP", "ORDERS", "1"}).code, 0);
    bool printed = false;
    for (const auto &entry : std::filesystem::directory_iterator(system_ / "print")) {
        std::ifstream job(entry.path());
        printed |= contains(std::string(std::istreambuf_iterator<char>(job), {}), "first");
    }
    EXPECT_TRUE(printed);
}

TEST_F(CommandTest, SelectListsPassFromCommandToCommandInASession) {
    make_file("ORDERS", {{"b", "1"}, {"a", "2"}, {"c", "3"}});
    const Ran ran = velda({"-c", "SSELECT ORDERS\nSAVE-LIST MINE\nGET-LIST MINE\nLIST ORDERS\nDELETE-LIST MINE"});
    EXPECT_EQ(ran.code, 0);
    EXPECT_EQ(ran.output,
              "3 records selected\nList 'MINE' saved, 3 keys\n3 records selected\na\nb\nc\n3 records listed\n");
}

TEST_F(CommandTest, SelectWithNamedKeysLeavesOutTheMissingAndFails) {
    make_file("ORDERS", {{"b", "1"}, {"a", "2"}});
    const Ran ran = velda({"SELECT", "ORDERS", "b", "none", "a"});
    EXPECT_EQ(ran.output, "2 records selected\n'none' record not found\n");
    EXPECT_EQ(ran.code, 2);
}

TEST_F(CommandTest, KeysOfAListWhoseRecordsAreGoneAreReported) {
    make_file("ORDERS", {{"b", "1"}, {"a", "2"}});
    ASSERT_EQ(velda({"-c", "SSELECT ORDERS\nSAVE-LIST MINE\nCLEAR-FILE ORDERS"}).code, 0);
    const Ran ran = velda({"-c", "GET-LIST MINE\nCOUNT ORDERS"});
    EXPECT_TRUE(
        ran.output.starts_with("2 records selected\n0 records counted\n'a' record not found\n'b' record not found\n"))
        << ran.output;
    EXPECT_EQ(ran.code, 2);
}

TEST_F(CommandTest, SavedListsOutliveTheSession) {
    make_file("ORDERS", {{"b", "1"}, {"a", "2"}});
    ASSERT_EQ(velda({"-c", "SELECT ORDERS a\nSAVE-LIST MINE"}).code, 0);
    EXPECT_EQ(velda({"-c", "GET-LIST MINE\nCOUNT ORDERS"}).output, "1 records selected\n1 records counted\n");
}

// --- scripts, links, sessions ---------------------------------------------------------------------------------------

TEST_F(CommandTest, AScriptStopsAtTheFirstFailureAndNamesTheLine) {
    const Ran ran = velda({"-c", "# a comment\n\nCREATE-FILE F\nCOUNT NONE\nCREATE-FILE G"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_TRUE(contains(ran.output, "script:4: 'COUNT NONE' ended with 1")) << ran.output;
    EXPECT_TRUE(std::filesystem::exists("F"));
    EXPECT_FALSE(std::filesystem::exists("G"));
}

TEST_F(CommandTest, LinesThatBeginWithLessThanAreRepliesOfTheCommandBeforeThem) {
    make_file("ORDERS", {{"1", "a"}});
    std::ofstream("script") << "CREATE-FILE TARGET\nCOPY ORDERS *\n<(TARGET\nCOUNT TARGET\n";
    const Ran ran = velda({"-f", "script"});
    EXPECT_EQ(ran.code, 0) << ran.output;
    EXPECT_TRUE(contains(ran.output, "1 records counted")) << ran.output;
}

TEST_F(CommandTest, AMissingScriptIsNamed) {
    const Ran ran = velda({"-f", "no.script"});
    EXPECT_EQ(ran.code, 2);
    EXPECT_TRUE(contains(ran.output, "cannot read script 'no.script': No such file or directory")) << ran.output;
}

TEST_F(CommandTest, ALinkOfACommandsNameRunsThatCommand) {
    std::filesystem::create_symlink(program(), "COUNT");
    make_file("ORDERS", {{"1", "a"}});
    EXPECT_EQ(run("./COUNT", {"ORDERS"}).output, "1 records counted\n");
}

TEST_F(CommandTest, TheShellReadsCommandsFromAPipe) {
    const Ran ran = velda({}, "CREATE-FILE F\nCOUNT F\nOFF\nCREATE-FILE G\n");
    EXPECT_EQ(ran.code, 0);
    EXPECT_EQ(ran.output, "0 records counted\n");
    EXPECT_FALSE(std::filesystem::exists("G"));
}

TEST_F(CommandTest, ListuShowsThisSessionsPortAndCommand) {
    setenv("VBCPORTNO", "4711", 1);
    const Ran ran = velda({"LISTU"});
    unsetenv("VBCPORTNO");
    EXPECT_TRUE(contains(ran.output, "4711")) << ran.output;
    EXPECT_TRUE(contains(ran.output, "LISTU")) << ran.output;
}

TEST_F(CommandTest, ListuGivesPortsAsJson) {
    setenv("VBCPORTNO", "4711", 1);
    const Ran ran = velda({"LISTU", "--json"});
    unsetenv("VBCPORTNO");
    EXPECT_TRUE(ran.output.starts_with("[{\"port\": 4711, \"pid\": ")) << ran.output;
    EXPECT_TRUE(contains(ran.output, "\"command\": \"LISTU --json\"}]")) << ran.output;
}

TEST_F(CommandTest, WhoShowsPortUserAndAccount) {
    setenv("VBCPORTNO", "4711", 1);
    setenv("VELDAACCOUNT", "SALES", 1);
    const Ran ran = velda({"WHO"});
    unsetenv("VELDAACCOUNT");
    unsetenv("VBCPORTNO");
    EXPECT_TRUE(ran.output.starts_with("4711 ")) << ran.output;
    EXPECT_TRUE(ran.output.ends_with(" SALES\n")) << ran.output;
}

TEST_F(CommandTest, APortNumberInUseIsRefusedByNameAndNumber) {
    setenv("VBCPORTNO", "4711", 1);
    const Ran nested = velda({"-c", "WHO\n\xFFk" + program() + " WHO"});
    unsetenv("VBCPORTNO");
    EXPECT_TRUE(contains(nested.output, "4711")) << nested.output;
    EXPECT_TRUE(contains(nested.output, "in use")) << nested.output;
    EXPECT_NE(nested.code, 0);
}

TEST_F(CommandTest, AMissingMessageFileStillPrintsKeyAndParameters) {
    setenv("VBCRELEASEDIR", "/nonexistent", 1);
    const Ran ran = velda({"COUNT", "NONE"});
    EXPECT_NE(ran.code, 0);
    EXPECT_TRUE(contains(ran.output, "201 NONE")) << ran.output;
    EXPECT_TRUE(contains(ran.output, "/nonexistent")) << ran.output;
}

TEST_F(CommandTest, VkillEndsAProcessAndTestsForIt) {
    const pid_t victim = fork();
    if (victim == 0) {
        pause();
        _exit(0);
    }
    EXPECT_EQ(velda({"vkill", "-t", "--", std::to_string(victim)}).code, 0);
    const Ran ran = velda({"vkill", "-v", "--", std::to_string(victim)});
    EXPECT_EQ(ran.code, 0);
    EXPECT_TRUE(contains(ran.output, "signal 15 sent")) << ran.output;
    int status = 0;
    waitpid(victim, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
}

TEST_F(CommandTest, VkillSendsTheSignalOfItsNumber) {
    const pid_t victim = fork();
    if (victim == 0) {
        pause();
        _exit(0);
    }
    EXPECT_EQ(velda({"vkill", "-9", std::to_string(victim)}).output, "");
    int status = 0;
    waitpid(victim, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST_F(CommandTest, VmvMovesAndVrmRemovesWithContents) {
    std::filesystem::create_directory("from");
    std::ofstream("from/record") << "x";
    EXPECT_EQ(velda({"vmv", "from", "to"}).code, 0);
    EXPECT_TRUE(std::filesystem::exists("to/record"));
    EXPECT_EQ(velda({"vrm", "-r", "to"}).code, 0);
    EXPECT_FALSE(std::filesystem::exists("to"));
    EXPECT_EQ(velda({"vrm", "-f", "to"}).code, 0);
}

TEST_F(CommandTest, OutputThatCannotBeWrittenIsAFailure) {
    make_file("ORDERS", {{"1", "a"}});
    const Ran ran = run("/bin/sh", {"-c", program() + " LIST ORDERS >/dev/full"});
    EXPECT_NE(ran.code, 0);
    EXPECT_TRUE(contains(ran.output, "No space left on device")) << ran.output;
}
