// READ, WRITE, DELETE, MATREAD and their flags, on hashed and on directory files.
#include <cerrno>

#include "tests/runtime/file/fixture.h"

namespace velda::test {
namespace {

class Records : public FileTest, public testing::WithParamInterface<const char *> {
  protected:
    void SetUp() override { make_file(GetParam()); }
};
INSTANTIATE_TEST_SUITE_P(Drivers, Records, testing::Values("HL", "UD"),
                         [](const auto &driver) { return std::string(driver.param); });

TEST_P(Records, ReadGivesWhatWasWritten) {
    EXPECT_EQ(write("K", "a^b]c\\d^^e"), 1);
    EXPECT_EQ(read("K"), (Read{1, "a^b]c\\d^^e"}));
}

TEST_P(Records, ReadOfAMissingRecordGivesTheEmptyStringAndError2) {
    EXPECT_EQ(read("K"), (Read{0, ""}));
    EXPECT_EQ(dp->last_error, ENOENT);
}

TEST_P(Records, AReadTellsItsReasonInTheSettingVariable) {
    VAR record, setting("before");
    const VAR key("K");
    EXPECT_EQ(VLibFNEWREAD_IIBBBIB(dp, 0, &file, &record, &key, 0, &setting), 0);
    EXPECT_EQ(setting.to_integer(), ENOENT);
    write("K", "a");
    setting = "before";
    EXPECT_EQ(VLibFNEWREAD_IIBBBIB(dp, 0, &file, &record, &key, 0, &setting), 1);
    EXPECT_EQ(setting.view(), "before");
}

TEST_P(Records, AnEmptyRecordIsARecord) {
    EXPECT_EQ(write("K", ""), 1);
    EXPECT_EQ(read("K"), (Read{1, ""}));
}

TEST_P(Records, WriteReplacesTheRecord) {
    write("K", "long old record");
    write("K", "new");
    EXPECT_EQ(read("K"), (Read{1, "new"}));
}

TEST_P(Records, DeleteRemovesTheRecordAndAMissingOneIsNoError) {
    write("K", "a");
    EXPECT_EQ(remove("K"), 1);
    EXPECT_EQ(read("K").result, 0);
    EXPECT_EQ(remove("K"), 1);
}

TEST_P(Records, ANumberIsAKeyAndARecordByItsText) {
    const VAR record(12.5), key(7);
    EXPECT_EQ(VLibFNEWWRITE_IIBBBIB(dp, 0, &file, &record, &key, 0, nullptr), 1);
    EXPECT_EQ(read("7"), (Read{1, "12.5"}));
}

TEST_P(Records, AKeyOfTheZeroByteWorks) {
    const VAR key(std::string_view("\0", 1));
    EXPECT_EQ(write(key, "zero"), 1);
    EXPECT_EQ(read(key), (Read{1, "zero"}));
}

TEST_P(Records, OneAttributeIsReadAlone) {
    write("K", "a^b]c^d");
    EXPECT_EQ(read("K", VELDA_ONE_ATTRIBUTE, 2), (Read{1, "b]c"}));
    EXPECT_EQ(read("K", VELDA_ONE_ATTRIBUTE, 9), (Read{1, ""}));
    EXPECT_EQ(read("K", VELDA_ONE_ATTRIBUTE, 0), (Read{1, "a^b]c^d"}));
    EXPECT_EQ(read("missing", VELDA_ONE_ATTRIBUTE, 1), (Read{0, ""}));
}

TEST_P(Records, OneAttributeIsWrittenAlone) {
    const VAR key("K"), value("new");
    write("K", "a^b^c");
    EXPECT_EQ(VLibFNEWWRITE_IIBBBIB(dp, VELDA_ONE_ATTRIBUTE, &file, &value, &key, 2, nullptr), 1);
    EXPECT_EQ(read("K").record, "a^new^c");
    EXPECT_EQ(VLibFNEWWRITE_IIBBBIB(dp, VELDA_ONE_ATTRIBUTE, &file, &value, &key, -1, nullptr), 1);
    EXPECT_EQ(read("K").record, "a^new^c^new");
}

TEST_P(Records, OneAttributeOfAMissingRecordMakesTheRecord) {
    const VAR key("K"), value("new");
    EXPECT_EQ(VLibFNEWWRITE_IIBBBIB(dp, VELDA_ONE_ATTRIBUTE, &file, &value, &key, 3, nullptr), 1);
    EXPECT_EQ(read("K").record, "^^new");
}

TEST_P(Records, TheTargetMayBeTheKeyOrTheFile) {
    write("K", "record");
    VAR both("K");
    EXPECT_EQ(VLibFNEWREAD_IIBBBIB(dp, 0, &file, &both, &both, 0, nullptr), 1);
    EXPECT_EQ(both.view(), "record");
    VAR file_and_target = file;
    const VAR key("K");
    EXPECT_EQ(VLibFNEWREAD_IIBBBIB(dp, 0, &file_and_target, &file_and_target, &key, 0, nullptr), 1);
    EXPECT_EQ(file_and_target.view(), "record");
    EXPECT_EQ(read("K").result, 1);
}

TEST_P(Records, MatreadPutsAnAttributeIntoEachCellAndTheRestIntoTheLast) {
    VAR matrix, count;
    const VAR key("K");
    velda_make_matrix(&matrix, 3);
    const auto cells = [&] {
        std::string text;
        for (int i = 1; i <= 3; ++i) text += "[" + shown(VLibBARRAY_BB(dp, &matrix, i)->view()) + "]";
        return text;
    };
    const auto matread = [&] { return VLibFNEWMATREAD_IIBBBBB(dp, 0, &count, &matrix, &key, &file, nullptr); };

    write("K", "a^b]c^d");
    EXPECT_EQ(matread(), 1);
    EXPECT_EQ(cells(), "[a][b]c][d]");
    EXPECT_EQ(count.to_integer(), 3);
    write("K", "x");
    EXPECT_EQ(matread(), 1);
    EXPECT_EQ(cells(), "[x][][]");
    EXPECT_EQ(count.to_integer(), 1);
    write("K", "a^b^c^d^");
    EXPECT_EQ(matread(), 1);
    EXPECT_EQ(cells(), "[a][b][c^d^]");
    EXPECT_EQ(count.to_integer(), 5);
    remove("K");
    EXPECT_EQ(matread(), 0);
    EXPECT_EQ(cells(), "[][][]");
    EXPECT_EQ(count.to_integer(), 0);
}

TEST_P(Records, ClearfileRemovesAllRecords) {
    for (int i = 0; i < 20; ++i) write(i, "record");
    EXPECT_EQ(VLibFNEWCLEARFILE_IIBB(dp, 0, &file, nullptr), 1);
    VAR list;
    VLibFSELECT_IBBB(dp, &file, &list, nullptr);
    EXPECT_TRUE(keys_of(list).empty());
    write("K", "again");
    EXPECT_EQ(read("K"), (Read{1, "again"}));
}

TEST_P(Records, TheLongestKeyWorks) {
    const VAR key(std::string(store::MaxKeyBytes, 'k'));
    EXPECT_EQ(write(key, "record"), 1);
    EXPECT_EQ(read(key), (Read{1, "record"}));
    EXPECT_EQ(remove(key), 1);
    EXPECT_EQ(read(key).result, 0);
}

TEST_P(Records, ReadingWithAnImpossibleKeyFindsNothing) {
    EXPECT_EQ(read(""), (Read{0, ""}));
    EXPECT_EQ(dp->last_error, EINVAL);
    EXPECT_EQ(read(std::string(store::MaxKeyBytes + 1, 'k')), (Read{0, ""}));
    EXPECT_EQ(dp->last_error, ENAMETOOLONG);
}

TEST_P(Records, WritingOrDeletingWithAnImpossibleKeyStopsAndSaysWhy) {
    const std::string too_long(store::MaxKeyBytes + 1, 'k');
    EXPECT_EQ(message_of_stop([&] { write("", "a"); }),
              "Cannot write record '' of file '" + path("F") + "': the key is empty");
    EXPECT_EQ(message_of_stop([&] { remove(""); }),
              "Cannot delete record '' of file '" + path("F") + "': the key is empty");
    const std::string shown_key = std::string(80, 'k') + "...";
    EXPECT_EQ(message_of_stop([&] { write(too_long, "a"); }),
              "Cannot write record '" + shown_key + "' of file '" + path("F") +
                  "': the key has 65537 bytes, at most 65536 are possible");
}

TEST_P(Records, ErrorsAreReportedWhenTheCallerAsksForIt) {
    VAR code;
    EXPECT_EQ(write("", "a", VELDA_REPORT_ERRORS, &code), 3);
    EXPECT_EQ(code.to_integer(), EINVAL);
    EXPECT_EQ(dp->last_error, EINVAL);
    EXPECT_EQ(remove(std::string(store::MaxKeyBytes + 1, 'k'), VELDA_REPORT_ERRORS, &code), 3);
    EXPECT_EQ(code.to_integer(), ENAMETOOLONG);
    EXPECT_EQ(dp->last_error, ENAMETOOLONG);
}

TEST_P(Records, ATooLargeRecordIsRefusedAndTheOldOneStays) {
    write("K", "old");
    // The bytes are never touched: the cell shows zero pages that nothing fills.
    VAR huge;
    static char nothing[1];
    huge.form = VELDA_FORM_OWNED;
    huge.text = nothing;
    huge.length = static_cast<std::uint32_t>(store::MaxRecordBytes + 1);
    VAR code;
    const VAR key("K");
    const int result = VLibFNEWWRITE_IIBBBIB(dp, VELDA_REPORT_ERRORS, &file, &huge, &key, 0, &code);
    huge.form = 0;
    EXPECT_EQ(result, 3);
    EXPECT_EQ(code.to_integer(), EFBIG);
    EXPECT_EQ(read("K").record, "old");
}

TEST_F(FileTest, StatementsOnACellThatHoldsNoFileStopAndSaySo) {
    for (const VAR &none : {VAR(), VAR(""), VAR("text"), VAR(3)}) {
        file = none;
        EXPECT_EQ(message_of_stop([&] { read("K"); }),
                  "Cannot read record 'K' of file '': the variable holds no open file");
        EXPECT_EQ(message_of_stop([&] { write("K", "a"); }),
                  "Cannot write record 'K' of file '': the variable holds no open file");
        EXPECT_EQ(message_of_stop([&] { remove("K"); }),
                  "Cannot delete record 'K' of file '': the variable holds no open file");
        EXPECT_EQ(message_of_stop([&] { VLibFNEWCLEARFILE_IIBB(dp, 0, &file, nullptr); }),
                  "Cannot clear file '': the variable holds no open file");
        const VAR key("K");
        EXPECT_EQ(VLibFRELEASE_IBB(dp, &file, &key), 0);
    }
}

TEST_F(FileTest, MessagesShowMarksAndUnprintableBytesOfKeysAsPoints) {
    make_file("HL");
    EXPECT_EQ(
        message_of_stop([&] { write(marks("a^b]\n") + std::string(store::MaxKeyBytes, 'k'), "x"); }).substr(0, 32),
        "Cannot write record 'a.b..kkkkkk");
}

TEST_F(FileTest, TheSettingVariableMayBeTheKeyOrTheFile) {
    make_file("HL");
    VAR key("missing"), record;
    EXPECT_EQ(VLibFNEWREAD_IIBBBIB(dp, VELDA_READ_REPORT_LOCK, &file, &record, &key, 0, &key), 0);
    EXPECT_EQ(key.to_integer(), ENOENT);
    VAR shared = file;
    key = "missing";
    EXPECT_EQ(VLibFNEWREAD_IIBBBIB(dp, VELDA_READ_REPORT_LOCK, &shared, &record, &key, 0, &shared), 0);
    EXPECT_EQ(shared.to_integer(), ENOENT);
}

TEST_F(FileTest, BinaryAndTextModeDecideHowADirectoryFileKeepsAttributes) {
    make_file("UD");
    const VAR command(static_cast<int>(VELDA_IOCTL_MODE));
    VAR binary("RB,WB"), text("RT,WT");
    EXPECT_EQ(VLibFIOCTL_IBBB(dp, &file, &command, &text), 1);
    write("K", "a^b");
    EXPECT_EQ(read("K").record, "a^b");
    EXPECT_EQ(VLibFIOCTL_IBBB(dp, &file, &command, &binary), 1);
    EXPECT_EQ(read("K").record.substr(0, 3), "a\nb");
    write("B", "a^b");
    EXPECT_EQ(read("B").record, "a^b");
}

}  // namespace
}  // namespace velda::test
