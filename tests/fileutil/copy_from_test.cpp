// The form "COPY FROM source ... TO target ...", and the words of its line.
#include "tests/fileutil/copy_fixture.h"

using namespace velda;
using namespace velda::test;

namespace {

class CopyFrom : public CopyTest {};

TEST_F(CopyFrom, CopiesTheKeysNamedAndIsQuiet) {
    const Ending ending = copy("COPY FROM F TO G K1 K3");
    EXPECT_EQ(ending.output, "");
    EXPECT_EQ(ending.exit_code, 0);
    EXPECT_EQ(contents("G"), "K1=one^1]2 K3=three");
}

TEST_F(CopyFrom, TakesKeysBeforeAndBehindTheTarget) {
    copy("copy from F K1 TO G K2");
    EXPECT_EQ(contents("G"), "K1=one^1]2 K2=two");
}

TEST_F(CopyFrom, GivesTheKeyBehindACommaToTheTarget) {
    copy("COPY FROM F TO G K1,N1 K2 K3,N3");
    EXPECT_EQ(contents("G"), "K2=two N1=one^1]2 N3=three");
}

TEST_F(CopyFrom, CopiesAllRecords) {
    copy("COPY FROM F TO G ALL");
    EXPECT_EQ(contents("G"), All);
}

TEST_F(CopyFrom, ReportsTheNumberWhenAsked) {
    EXPECT_EQ(copy("COPY FROM F TO G K1 SQUAWK").output, "1 records copied\n");
    EXPECT_EQ(copy("COPY FROM F TO G K2 REPORTING").output, "1 records copied\n");
}

TEST_F(CopyFrom, OverwritesOnlyWhenAsked) {
    put("G", "K1", "old");
    EXPECT_EQ(copy("COPY FROM F TO G K1").output, "'K1' already exists\n");
    copy("COPY FROM F TO G K1 OVERWRITING");
    EXPECT_EQ(contents("G"), "K1=one^1]2");
}

TEST_F(CopyFrom, UpdatingWritesRecordsThatDoNotExistToo) {
    put("G", "K1", "old");
    EXPECT_EQ(copy("COPY FROM F TO G K1 K2 UPDATING").output, "");
    EXPECT_EQ(contents("G"), "K1=one^1]2 K2=two");
}

TEST_F(CopyFrom, DeletesTheSourceRecords) {
    copy("COPY FROM F TO G K1 DELETING");
    EXPECT_EQ(contents("F"), "K2=two K3=three");
    EXPECT_EQ(contents("G"), "K1=one^1]2");
}

TEST_F(CopyFrom, TakesDictAndDataWithTheFilesName) {
    put("DICT F", "A1", "A");
    copy("COPY FROM DICT F TO DICT G A1");
    EXPECT_EQ(contents("DICT G"), "A1=A");
    copy("COPY FROM data F TO G K2");
    EXPECT_EQ(contents("G"), "K2=two");
    copy("COPY FROM dict F TO dict G A1,A2");
    EXPECT_EQ(contents("DICT G"), "A1=A A2=A");
}

TEST_F(CopyFrom, FindsNoTargetBehindTheWordData) {
    // The answer to the prompt knows DICT alone as a section.
    EXPECT_EQ(copy("COPY FROM F TO DATA G K1").output, "Cannot open file 'DATA'\n");
}

TEST_F(CopyFrom, MatchesKeywordsInUpperCaseOnly) {
    const Ending ending = copy("COPY FROM F TO G K1 all overwriting");
    EXPECT_EQ(ending.output, "'all' record not found\n'overwriting' record not found\n");
    EXPECT_EQ(ending.exit_code, 2);
}

TEST_F(CopyFrom, AcceptsUnicode) {
    EXPECT_EQ(copy("COPY FROM F TO G K1 UNICODE").output, "");
    EXPECT_EQ(contents("G"), "K1=one^1]2");
}

TEST_F(CopyFrom, CopiesTheFirstRecordsOfTheSource) {
    copy("COPY FROM F FIRST 2 TO G");
    EXPECT_EQ(dcount(contents("G"), " "), 2);
    copy("COPY FROM F FIRST 99 TO G OVERWRITING");
    EXPECT_EQ(contents("G"), All);
    copy("COPY FROM F FIRST 0 TO D");
    EXPECT_EQ(contents("D"), "");
}

TEST_F(CopyFrom, DropsATargetInFrontOfFirst) {
    const Ending ending = copy("COPY FROM F TO G FIRST 1 NUM.SUPP ID.SUP");
    EXPECT_EQ(contents("G"), "");
    EXPECT_EQ(ending.output, " \none\n1.2\n\n") << "without target the records are shown";
}

TEST_F(CopyFrom, TakesTheFirstRecordsInPlaceOfKeysAndOfAll) {
    copy("COPY FROM F K3,N3 FIRST 1 TO G");
    EXPECT_EQ(contents("G"), "K1=one^1]2");
    copy("COPY FROM F ALL FIRST 2 TO D");
    EXPECT_EQ(contents("D"), "K1=one^1]2 K2=two");
}

TEST_F(CopyFrom, TakesAllRecordsInPlaceOfKeysToo) {
    copy("COPY FROM F K1,N1 ALL TO G");
    EXPECT_EQ(contents("G"), "K2=two K3=three N1=one^1]2") << "the first record gets the target key that was given";
}

TEST_F(CopyFrom, ShowsTheRecordsWhenNeitherTargetNorKeysAreGiven) {
    EXPECT_EQ(copy("COPY FROM F ALL").output, "    K1\n001 one\n002 1.2\n\n    K2\n001 two\n\n    K3\n001 three\n\n");
}

TEST_F(CopyFrom, IgnoresFirstWithoutNumber) {
    const Ending ending = copy("COPY FROM F TO G FIRST K1");
    EXPECT_EQ(ending.output, "");
    EXPECT_EQ(contents("G"), "K1=one^1]2");
}

TEST_F(CopyFrom, TakesTheSelectListWithoutKeys) {
    const Ending ending = run_on_pipes("", [](DP *dp) {
        SelectList(marks("K2^K3")).make_default();
        copy_program("COPY FROM F TO G")(dp);
    });
    EXPECT_EQ(ending.output, "");
    EXPECT_EQ(contents("G"), "K2=two K3=three");
}

TEST_F(CopyFrom, CopiesNothingWithoutKeysAndWithoutSelectList) {
    EXPECT_EQ(copy("COPY FROM F TO G SQUAWK").output, "0 records copied\n");
}

TEST_F(CopyFrom, StopsWhenTheSourceCannotBeOpened) {
    const Ending ending = copy("COPY FROM DICT NOWHERE TO G K1");
    EXPECT_EQ(ending.output, "Cannot open file 'DICT NOWHERE'\n");
    EXPECT_EQ(ending.exit_code, 1);
    EXPECT_EQ(copy("COPY FROM").exit_code, 1);
}

TEST_F(CopyFrom, ExitsWithCode2WhenARecordIsMissing) {
    const Ending ending = copy("COPY FROM F TO G NONE K1");
    EXPECT_EQ(ending.output, "'NONE' record not found\n");
    EXPECT_EQ(ending.exit_code, 2);
}

TEST_F(CopyFrom, ShowsRecordsOnTheTerminal) {
    EXPECT_EQ(copy("COPY FROM F K1 CRT").output, "    K1\n001 one\n002 1.2\n\n");
    EXPECT_EQ(copy("COPY FROM F K2 CRT NUM.SUPP ID.SUP HEX").output, " \n74776F\n\n");
    EXPECT_EQ(copy("COPY FROM F TO G K2 CRT").output, "    K2\n001 two\n\n") << "what stood for the target is dropped";
    EXPECT_EQ(contents("G"), "");
}

TEST_F(CopyFrom, LeavesNoAnswerBehindWhenTheRecordsAreShown) {
    for (const int output_flag : {0, 1}) {
        const auto body = [=](DP *dp) {
            call_on_exit("TestShowStackedData");
            VAR OutputFlag = output_flag;
            VBC_VELDACopyCommand(dp, "V", &OutputFlag);
        };
        const char *const sentence = output_flag ? "CT FROM F K2" : "COPY FROM F CRT K2";
        EXPECT_EQ(run_on_pipes("", command(sentence, body)).output, "    K2\n001 two\n\nstacked: 0\n") << sentence;
    }
}

TEST_F(CopyFrom, WithoutTargetCopiesWithinTheSource) {
    copy("COPY FROM F K1,N1");
    EXPECT_EQ(contents("F"), std::string(All) + " N1=one^1]2");
    EXPECT_EQ(copy("COPY FROM F K1").output, "'K1' already exists\n");
}

// --- the words of the line -----------------------------------------------------------------------------------------

// Copies with these words behind "COPY FROM F TO G"; what G then holds. The source has a record for every key here.
struct WordsCase {
    const char *words;  // divided by ^
    const char *target_keys;
};

TEST_F(CopyFrom, TakesQuotedStretchesAndCommasAsWords) {
    constexpr WordsCase Cases[] = {
        // The blank between a last word and its closing text is lost.
        {"\"abc^def\"", "abcdef"},
        {"\"a^b^c\"", "a bc"},
        {"'a^b^c'", "a bc"},
        // It stays in front of a closing word that begins with the quote, and for empty words.
        {"\"abc^\"", "abc "},
        {"\"a^^^c\"", "a c"},  // the record of "a  c": the answer for the target is trimmed
        {"\"a^b^\"", "a b "},
        // The rest of a quoted word is a word of its own.
        {"\"K1\"\"K2\"", "K1,K2"},
        {"'K1'K2", "K1,K2"},
        {"'a^b'K2", "K2,ab"},
        // The other quote inside is a byte like any other.
        {"\"it's\"", "it's"},
        {"\"it's^me\"", "it'sme"},
        // A quote inside a word is no quote.
        {"K1\"x", "K1\"x"},
        // A stretch without end runs to the end of the line; the answer for the target drops its lone quote.
        {"\"a^b", "a b"},
        // A comma is a word wherever it stands in a plain one.
        {"K1,N1", "N1"},
        {"K1^,N1", "N1"},
        {"K1,N1,x", "N1,x"},
        {"\"K1\",\"N1\"", "N1"},
        {"\"K1\",N1^K2", "K2,N1"},
        // Empty words are dropped.
        {"^^K1^^", "K1"},
    };
    File source;
    ASSERT_TRUE(source.open("F"));
    for (const WordsCase &words : Cases) {
        for (const char *key :
             {"abcdef", "a bc", "abc ", "a  c", "a b ", "K1", "K2", "ab", "it's", "it'sme", "K1\"x", "\"a b"})
            source.write(key, "x");
        File target;
        ASSERT_TRUE(target.open("G"));
        target.clear();
        const Ending ending = copy(marks(std::string("COPY^FROM^F^TO^G^") + words.words));
        EXPECT_EQ(ending.output, "") << words.words;
        std::vector<std::string> keys;
        for (const VAR &key : target.select()) keys.push_back(key.str());
        std::sort(keys.begin(), keys.end());
        std::string joined;
        for (const std::string &key : keys) joined += (joined.empty() ? "" : ",") + key;
        EXPECT_EQ(joined, words.target_keys) << words.words;
    }
}

TEST_F(CopyFrom, TakesAnEmptyTargetKeyBehindACommaThatEndsItsWord) {
    // "K1," gives an empty word behind the comma, which is K1's key in the target: the answer loses it, and K2 is the
    // first key of the answer.
    const Ending ending = copy("COPY FROM F TO G K1, K2,N2");
    EXPECT_EQ(ending.output, "");
    EXPECT_EQ(contents("G"), "K2=two N2=one^1]2");
}

TEST_F(CopyFrom, EndsAtTheEmptyWordBehindALoneComma) {
    EXPECT_EQ(copy("COPY FROM F TO G K1 K2,").output, "");
    EXPECT_EQ(contents("G"), "K1=one^1]2 K2=two");
}

}  // namespace

// An exit handler of the tests above.
VBC_SUBROUTINE(TestShowStackedData, code) { crt_line("stacked: ", stacked_data()); }
