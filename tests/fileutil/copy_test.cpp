// COPY from file to file, in the classic form.
#include "tests/fileutil/copy_fixture.h"

using namespace velda;
using namespace velda::test;

namespace {

TEST_F(CopyTest, CopiesTheKeysOfTheLineAndReportsTheirNumber) {
    const Ending ending = copy("COPY F K1 K2", {"(G"});
    EXPECT_EQ(ending.output, "2 records copied\n");
    EXPECT_EQ(ending.exit_code, 0);
    EXPECT_EQ(contents("G"), "K1=one^1]2 K2=two");
    EXPECT_EQ(contents("F"), All);
}

TEST_F(CopyTest, CopiesAllRecordsForAStarAndWithoutAList) {
    EXPECT_EQ(copy("COPY F *", {"(G)"}).output, "3 records copied\n");
    EXPECT_EQ(contents("G"), All);
    EXPECT_EQ(copy("COPY F (O", {"(D"}).output, "3 records copied\n");
    EXPECT_EQ(contents("D"), All);
}

TEST_F(CopyTest, TakesTheActiveSelectList) {
    const Ending ending = run_on_pipes("", [](DP *dp) {
        SelectList(marks("K3^K1")).make_default();
        copy_program("COPY F", {"(G"})(dp);
    });
    EXPECT_EQ(ending.output, "2 records copied\n");
    EXPECT_EQ(contents("G"), "K1=one^1]2 K3=three");
}

TEST_F(CopyTest, GivesTheKeysOfTheAnswerToTheRecordsInTurn) {
    copy("COPY F K1 K2", {"(G N1"});
    EXPECT_EQ(contents("G"), "K2=two N1=one^1]2");
}

TEST_F(CopyTest, CopiesWithinTheFileUnderTheKeysOfTheAnswer) {
    EXPECT_EQ(copy("COPY F K1 K2", {"N1 N2"}).output, "2 records copied\n");
    EXPECT_EQ(contents("F"), std::string(All) + " N1=one^1]2 N2=two");
}

TEST_F(CopyTest, AsksForTheTarget) {
    const Ending ending = run_on_pipes("(G\n", copy_program("COPY F K1"));
    EXPECT_EQ(ending.output, "To: 1 records copied\n");
    EXPECT_EQ(contents("G"), "K1=one^1]2");
}

TEST_F(CopyTest, TakesStackedDataWithoutShowingIt) {
    EXPECT_EQ(copy("COPY F K1", {"(G  N1  "}).output, "1 records copied\n");
    EXPECT_EQ(contents("G"), "N1=one^1]2");
}

TEST_F(CopyTest, RestoresTheEchoAfterStackedData) {
    for (const bool on : {true, false}) {
        const auto body = [=](DP *dp) {
            set_echo(on);
            call_on_exit("TestShowEcho");
            VAR OutputFlag = 0;
            VBC_VELDACopyCommand(dp, "V", &OutputFlag);
        };
        const Ending ending = run_on_pipes("", command("COPY F K1 (QO", body, {"(G"}));
        EXPECT_EQ(ending.output, on ? "on" : "off");
    }
}

TEST_F(CopyTest, RefusesToOverwriteWithoutOptionOAndGoesOn) {
    put("G", "K2", "old");
    const Ending ending = copy("COPY F K1 K2 K3", {"(G"});
    EXPECT_EQ(ending.output, "'K2' already exists\n2 records copied\n");
    EXPECT_EQ(ending.exit_code, 0);
    EXPECT_EQ(contents("G"), "K1=one^1]2 K2=old K3=three");
}

TEST_F(CopyTest, RefusesASecondRecordForOneKeyOfTheSameCommand) {
    EXPECT_EQ(copy("COPY F K1 K2", {"(G N1 N1"}).output, "'N1' already exists\n1 records copied\n");
    EXPECT_EQ(contents("G"), "N1=one^1]2");
}

TEST_F(CopyTest, OverwritesWithOptionO) {
    put("G", "K2", "old");
    EXPECT_EQ(copy("COPY F K2 (O", {"(G"}).output, "1 records copied\n");
    EXPECT_EQ(contents("G"), "K2=two");
}

TEST_F(CopyTest, ListsMissingRecordsAndExitsWithCode2) {
    const Ending ending = copy("COPY F K1 NONE 'no blank' ", {"(G"});
    EXPECT_EQ(ending.output,
              "1 records copied\n'NONE' record not found\n''no' record not found\n'blank'' record not found\n");
    EXPECT_EQ(ending.exit_code, 2);
    EXPECT_EQ(contents("G"), "K1=one^1]2");
}

TEST_F(CopyTest, DropsTheQuotesOfAKey) {
    put("F", "a b", "blank");
    EXPECT_EQ(copy(marks("COPY^F^'a b'^\"K2\""), {"(G"}).output, "2 records copied\n");
    EXPECT_EQ(contents("G"), "K2=two a b=blank");
}

TEST_F(CopyTest, DoesNotGiveATargetKeyToAMissingRecord) {
    copy("COPY F NONE K1", {"(G N1"});
    EXPECT_EQ(contents("G"), "N1=one^1]2");
}

TEST_F(CopyTest, UsesUpTheTargetKeyOfARecordThatExists) {
    put("G", "N1", "old");
    copy("COPY F K1 K2", {"(G N1 N2"});
    EXPECT_EQ(contents("G"), "N1=old N2=two");
}

TEST_F(CopyTest, DeletesTheSourceRecordsWithOptionD) {
    EXPECT_EQ(copy("COPY F K1 K2 (D", {"(G"}).output, "2 records copied\n");
    EXPECT_EQ(contents("G"), "K1=one^1]2 K2=two");
    EXPECT_EQ(contents("F"), "K3=three");
}

TEST_F(CopyTest, KeepsASourceRecordThatWasNotCopied) {
    put("G", "K1", "old");
    copy("COPY F K1 K2 (D", {"(G"});
    EXPECT_EQ(contents("F"), "K1=one^1]2 K3=three");
}

TEST_F(CopyTest, LosesARecordThatOptionDCopiesOntoItself) {
    EXPECT_EQ(copy("COPY F K1 (DO", {"K1"}).output, "1 records copied\n");
    EXPECT_EQ(contents("F"), "K2=two K3=three");
}

TEST_F(CopyTest, RenamesWithOptionDWithinAFile) {
    copy("COPY F K1 K2 (D", {"N1 N2"});
    EXPECT_EQ(contents("F"), "K3=three N1=one^1]2 N2=two");
}

TEST_F(CopyTest, SeesItsOwnUpdatesOfTheFile) {
    // K1 moves to N1; N1 is then read, and K1 is free again.
    EXPECT_EQ(copy("COPY F K1 N1 (D", {"N1 K1"}).output, "2 records copied\n");
    EXPECT_EQ(contents("F"), All);
    EXPECT_EQ(copy("COPY F K1 K1 (D", {"N1 N2"}).output, "1 records copied\n'K1' record not found\n");
    EXPECT_EQ(contents("F"), "K2=two K3=three N1=one^1]2");
}

TEST_F(CopyTest, ReadsASourceKeyOnceWhenItIsDeleted) {
    EXPECT_EQ(copy("COPY F K1 K1 (D", {"(G N1 N2"}).output, "1 records copied\n'K1' record not found\n");
    EXPECT_EQ(contents("G"), "N1=one^1]2");
}

TEST_F(CopyTest, KnowsOneFileUnderTwoNames) {
    EXPECT_EQ(copy("COPY F K1 (DO", {"(./F"}).output, "1 records copied\n");
    EXPECT_EQ(contents("F"), "K2=two K3=three") << "the write is followed by the delete";
}

TEST_F(CopyTest, ShowsEachKeyWithOptionI) {
    EXPECT_EQ(copy("COPY F K1 K2 NONE (I", {"(G N1"}).output,
              "     1 K1 --> N1\n     2 K2\n2 records copied\n'NONE' record not found\n");
}

TEST_F(CopyTest, ShowsNeitherKeysNorTheCountWithOptionQ) {
    put("G", "K3", "old");
    EXPECT_EQ(copy("COPY F K1 K3 (IQ", {"(G"}).output, "'K3' already exists\n");
    EXPECT_EQ(contents("G"), "K1=one^1]2 K3=old");
}

TEST_F(CopyTest, InvertsOptionIUnderItsEmulationSetting) {
    const ScratchDirectory release;
    const auto under_setting = [&](const char *sentence) {
        return run_on_pipes("",
                            [&](DP *dp) {
                                use_emulation(release, "invert_verbose_option = 1");
                                copy_program(sentence, {"(G"})(dp);
                            })
            .output;
    };
    EXPECT_EQ(under_setting("COPY F K1"), "     1 K1\n1 records copied\n");
    EXPECT_EQ(under_setting("COPY F K2 (I"), "1 records copied\n");
}

TEST_F(CopyTest, FoldsItsOptions) { EXPECT_EQ(copy("COPY F K1 (iq)", {"(G"}).output, ""); }

TEST_F(CopyTest, DoesNotCountTheRecordsThatItSkips) {
    put("G", "K1", "old");
    EXPECT_EQ(copy("COPY F K1 K2 (I", {"(G"}).output, "'K1' already exists\n     1 K2\n1 records copied\n");
}

struct TargetCase {
    const char *answer;
    const char *expected;  // what G or its dictionary then holds
    const char *part;
};

TEST_F(CopyTest, KnowsTheFormsOfATarget) {
    constexpr TargetCase Cases[] = {
        {"(G", "K1=one^1]2", "G"},
        {"(G)", "K1=one^1]2", "G"},
        {"(G N1", "N1=one^1]2", "G"},
        {"(G) N1 N2", "N1=one^1]2", "G"},
        {"(DICT G", "K1=one^1]2", "DICT G"},
        {"(dict G) N1", "N1=one^1]2", "DICT G"},
        {"(DICT) G) N1", "N1=one^1]2", "DICT G"},
        {"(G 'N1'", "N1=one^1]2", "G"},
        {"(G \"N 1\" x", "N 1=one^1]2", "G"},
        {"(G 'a b c' x", "a b c=one^1]2", "G"},
        {"(G 'a  b'", "a b=one^1]2", "G"},
        {"(G 'a \"b' c", "a \"b=one^1]2", "G"},
        {"(G 'a b", "a b=one^1]2", "G"},
        {"(G N1'", "N1'=one^1]2", "G"},
    };
    for (const TargetCase &target : Cases) {
        File part;
        ASSERT_TRUE(part.open(target.part));
        part.clear();
        const Ending ending = copy("COPY F K1", {target.answer});
        EXPECT_EQ(ending.output, "1 records copied\n") << target.answer;
        EXPECT_EQ(contents(target.part), target.expected) << target.answer;
    }
}

TEST_F(CopyTest, ContinuesWithTheNextKeyBehindAQuotedOne) {
    copy("COPY F K1 K2", {"(G 'a b' N2"});
    EXPECT_EQ(contents("G"), "N2=two a b=one^1]2");
}

TEST_F(CopyTest, ReportsATargetWithoutName) {
    for (const char *answer : {"(", "()", "(DICT", "( G"}) {
        const Ending ending = copy("COPY F K1", {answer});
        EXPECT_EQ(ending.output, "File name expected\n") << answer;
        EXPECT_EQ(ending.exit_code, 0) << answer;
    }
}

TEST_F(CopyTest, ReportsATargetThatCannotBeOpened) {
    Ending ending = copy("COPY F K1", {"(NOWHERE N1"});
    EXPECT_EQ(ending.output, "Cannot open file 'NOWHERE'\n");
    EXPECT_EQ(ending.exit_code, 0);
    ending = copy("COPY F K1", {"(DICT NOWHERE"});
    EXPECT_EQ(ending.output, "Cannot open file 'DICT NOWHERE'\n");
    EXPECT_EQ(ending.exit_code, 0);
}

TEST_F(CopyTest, StopsWhenTheSourceCannotBeOpened) {
    const Ending ending = copy("COPY NOWHERE K1", {"(G"});
    EXPECT_EQ(ending.output, "Cannot open file 'NOWHERE'\n");
    EXPECT_EQ(ending.exit_code, 1);
}

TEST_F(CopyTest, CopiesTheDictionary) {
    put("DICT F", "A1", "A^1");
    EXPECT_EQ(copy("COPY DICT F *", {"(DICT G"}).output, "1 records copied\n");
    EXPECT_EQ(contents("DICT G"), "A1=A^1");
}

TEST_F(CopyTest, EndsTheCommandWithAMessageThatNamesTheRecordThatCannotBeWritten) {
    std::filesystem::create_directory("D/K2");
    const Ending ending = copy("COPY F K1 K2 K3 (O", {"(D"});
    EXPECT_NE(ending.output.find("'K2'"), std::string::npos) << ending.output;
    EXPECT_EQ(ending.exit_code, 1);
    EXPECT_EQ(get("D", "K1") + get("D", "K3"), "one^1]2(none)") << "the record before it was copied, none behind it";
}

TEST_F(CopyTest, KeepsTheSourceRecordsThatCouldNotBeWritten) {
    std::filesystem::create_directory("D/K2");
    copy("COPY F K1 K2 K3 (DO", {"(D"});
    EXPECT_EQ(contents("F"), "K2=two K3=three");
}

// --- modes and the editor's form -----------------------------------------------------------------------------------

std::string host_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(CopyTest, TurnsMarksIntoNewlinesBetweenFilesOfDifferentTypes) {
    copy("COPY F K1", {"(D"});
    EXPECT_EQ(host_file("D/K1"),
              "one\n1\xFD"
              "2\n");
    write_host_file("D/new", "a\nb\n");
    copy("COPY D new", {"(F"});
    EXPECT_EQ(get("F", "new"), "a^b");
}

TEST_F(CopyTest, CopiesUnconvertedBetweenFilesOfOneType) {
    make_file("D2", " TYPE=UD");
    write_host_file("D/raw",
                    "a\r\nb\xFE"
                    "c\n\n");
    copy("COPY D raw", {"(D2"});
    EXPECT_EQ(host_file("D2/raw"),
              "a\r\nb\xFE"
              "c\n\n");
}

TEST_F(CopyTest, CopiesUnconvertedWithOptionB) {
    copy("COPY F K1 (B", {"(D"});
    EXPECT_EQ(host_file("D/K1"),
              "one\xFE"
              "1\xFD"
              "2");
    write_host_file("D/raw", "a\nb");
    copy("COPY D raw (B", {"(F"});
    EXPECT_EQ(get("F", "raw"), "a\nb");
}

TEST_F(CopyTest, ReadsTheSourceAsTextWithOptionAWhateverTheTypes) {
    make_file("D2", " TYPE=UD");
    write_host_file("D/text", "a\nb");
    copy("COPY D text (A", {"(D2"});
    EXPECT_EQ(host_file("D2/text"), "a\nb\n") << "as a text file ends";
}

TEST_F(CopyTest, CopiesUnconvertedWhenBothOptionsAreGiven) {
    copy("COPY F K1 (AB", {"(D"});
    EXPECT_EQ(host_file("D/K1"),
              "one\xFE"
              "1\xFD"
              "2");
}

TEST_F(CopyTest, ExpandsRecordsOfTheEditorsFormForAnOptionWordWithE) {
    put("F", "Z",
        std::string("a\x10 \x05"
                    "b^*\x10*\x03"));
    copy("COPY -E F Z", {"(G"});
    EXPECT_EQ(get("G", "Z"), "a     b^****");
    copy("COPY -xEy F Z", {"(G N"});
    EXPECT_EQ(get("G", "N"), "a     b^****");
    copy("COPY -e F Z", {"(G P"});
    EXPECT_EQ(get("G", "P"), std::string("a\x10 \x05"
                                         "b^*\x10*\x03"));
}

TEST_F(CopyTest, ReadsTheEditorsFormUnconvertedFromADirectory) {
    // The count byte of the run is a line feed: a text read would turn it into a mark.
    write_host_file("D/Z", std::string("a\x10 \n") + "b");
    copy("COPY -E D Z", {"(F"});
    EXPECT_EQ(get("F", "Z"), "a" + std::string(10, ' ') + "b");
}

TEST_F(CopyTest, ReadsTheEditorsFormAsTextWithOptionA) {
    // The line feed is a mark then, and the count of the run is the mark's byte.
    write_host_file("D/Z", std::string("a\x10 \n") + "b");
    copy("COPY -E D Z (A", {"(F"});
    EXPECT_EQ(get("F", "Z"), "a" + std::string(0xFE, ' ') + "b");
}

// --- batches ---------------------------------------------------------------------------------------------------------

TEST_F(CopyTest, CopiesMoreRecordsThanABatchHolds) {
    File source;
    ASSERT_TRUE(source.open("F"));
    for (int number = 0; number < 2500; ++number)
        source.write(number, cat("record ", number, AM, str("x", number % 50)));
    EXPECT_EQ(copy("COPY F * (O", {"(G"}).output, "2503 records copied\n");
    EXPECT_EQ(contents("G"), contents("F"));
    EXPECT_EQ(copy("COPY F K1 7 8 (D", {"(G"}).output,
              "'K1' already exists\n'7' already exists\n'8' already exists\n0 records copied\n");
}

TEST_F(CopyTest, CopiesRecordsLargerThanABatch) {
    File source;
    ASSERT_TRUE(source.open("F"));
    const VAR large = str("0123456789", 600000);
    source.write("large", large);
    source.write("medium", str("m", 3000000));
    EXPECT_EQ(copy("COPY F K1 medium large K2 (D", {"(G"}).output, "4 records copied\n");
    EXPECT_EQ(contents("F"), "K3=three");
    File target;
    ASSERT_TRUE(target.open("G"));
    EXPECT_TRUE(*target.read("large") == large);
    EXPECT_EQ(target.read("medium")->size(), 3000000u);
    EXPECT_EQ(get("G", "K2"), "two");
}

TEST_F(CopyTest, MakesWhatItReportedWhenItIsBrokenOff) {
    File source;
    ASSERT_TRUE(source.open("F"));
    for (int number = 0; number < 3000; ++number) source.write(number, "x");
    OnTerminal terminal(copy_program("COPY F * (I", {"(G"}));
    terminal.until("    20 ");
    terminal.type("\x03");
    const std::string output = terminal.rest();
    ASSERT_EQ(output.find("records copied"), output.npos) << "the break key came too late";
    int reported = 20;
    for (std::size_t at = output.find("\r\n"); at != output.npos; at = output.find("\r\n", at + 2)) {
        const VAR number = trim(output.substr(at + 2, 6));
        if (is_num(number)) reported = std::max(reported, to_int(number));
    }
    File target;
    ASSERT_TRUE(target.open("G"));
    EXPECT_GE(target.status()(VELDA_STATUS_RECORDS).to_integer(), reported);
}

TEST_F(CopyTest, LeavesWholeRecordsAndLosesNoneWhenItIsKilled) {
    File source;
    ASSERT_TRUE(source.open("F"));
    source.clear();
    constexpr int Records = 4000;
    const auto record_of = [](int number) { return cat(str("y", 100 + number % 700), AM, number).str(); };
    for (int number = 0; number < Records; ++number) source.write(number, record_of(number));
    for (int round = 0; round < 10; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            run_command("COPY F * (DOQ", [](DP *dp) {
                stack_data("(G");
                VAR OutputFlag = 0;
                VBC_VELDACopyCommand(dp, "V", &OutputFlag);
            });
            _exit(0);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(3 + 4 * round));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        File target;
        ASSERT_TRUE(target.open("G"));
        for (int number = 0; number < Records; ++number) {
            VAR in_source, in_target;
            const bool left = source.read(in_source, number);
            const bool came = target.read(in_target, number);
            ASSERT_TRUE(left || came) << "record " << number << " is lost";
            ASSERT_TRUE(!left || in_source == record_of(number)) << in_source.str();
            ASSERT_TRUE(!came || in_target == record_of(number)) << in_target.str();
        }
    }
}

}  // namespace

// An exit handler of the tests above.
VBC_SUBROUTINE(TestShowEcho, code) { crt(echo_is_on() ? "on" : "off"); }
