// Records as dynamic arrays.
#include "tests/journal_internals/reading_fixture.h"

using namespace velda::test;

namespace {

class Conversion : public ReadingTest {
  protected:
    ~Conversion() override { unsetenv("ALLOWLOGDATA"); }

    static char *allocate(DP *, char *old, uint32_t size) {
        delete[] old;
        return new char[size];
    }

    // The conversion with visible marks.
    std::string converted(BuiltRecord record, const char *extra_text = "why") {
        record.time = 1000;
        const std::string bytes = record_bytes(record, 2, 1, 5000);
        return shown(converted_bytes(bytes, extra_text));
    }

    std::string converted_bytes(const std::string &bytes, const char *extra_text = "") {
        char *buffer = nullptr;
        uint32_t size = 0;
        // A copy of exactly the record's size: what reads beyond it is found by the address sanitizer.
        const std::vector<unsigned char> record(bytes.begin(), bytes.end());
        EXPECT_EQ(VELDALoggerConvertRecord(dp, record.data(), extra_text, &buffer, &size, allocate), 0);
        const std::string text(buffer, size);
        delete[] buffer;
        return text;
    }

    // Everything behind attribute 8.
    static std::string behind(const std::string &text, int attributes) {
        std::size_t at = 0;
        for (int n = 0; n < attributes; ++n) at = text.find('^', at) + 1;
        return text.substr(at);
    }

    std::string at(const std::string &text, int attribute) { return VAR(VAR(marks(text))(attribute)).str(); }
};

TEST_F(Conversion, ShowsHeaderExtraTextNineEmptyAttributesAndTheTexts) {
    EXPECT_EQ(converted(delete_record("FILE", "key", 7)),
              "2^1^5000^98^DELETE^1000^0^3^4711^3^why^^^^^^^^^^FILE^key^app^user^tty^appid^source^12^");
}

TEST_F(Conversion, NoExtraTextIsAnEmptyAttribute) {
    EXPECT_EQ(at(converted(delete_record("FILE", "key"), nullptr), 11), "");
}

TEST_F(Conversion, OnlyTheFirstFlagTellsOfATransaction) {
    for (const auto &[flags, shown_flag] :
         std::vector<std::pair<int, std::string>>{{0, "0"}, {1, "1"}, {2, "0"}, {3, "1"}, {0xFE, "0"}}) {
        BuiltRecord record = delete_record("FILE", "key");
        record.flags = flags;
        EXPECT_EQ(at(converted(record), 7), shown_flag) << flags;
    }
}

TEST_F(Conversion, EveryTypeHasItsName) {
    const std::vector<std::pair<int, std::string>> names = {
        {0, "UNKNOWN"},      {1, "EOF"},           {2, "WRITE"},          {3, "DELETE"},         {4, "CLEARFILE"},
        {5, "DELETEFILE"},   {6, "CREATEFILE"},    {7, "TRANSTART"},      {8, "TRANSEND"},       {9, "TRANSABORT"},
        {10, "UNKNOWN"},     {11, "MOVEFILE"},     {12, "REMOVEFILE"},    {13, "VCHMOD"},        {14, "MKDIR"},
        {15, "FLATFILE"},    {16, "UNKNOWN"},      {17, "UNKNOWN"},       {18, "CHECKPOINT"},    {19, "CREATEINDEX"},
        {20, "DELETEINDEX"}, {21, "REBUILDINDEX"}, {22, "CREATETRIGGER"}, {23, "DELETETRIGGER"}, {24, "UNKNOWN"},
        {255, "UNKNOWN"}};
    for (const auto &[type, name] : names) {
        EXPECT_EQ(at(converted(record_of(type)), 5), name) << type;
        EXPECT_EQ(at(converted(record_of(type)), 8), std::to_string(type));
    }
}

TEST_F(Conversion, AFieldEndsAtAnyByteOf0xFEAndAbove) {
    BuiltRecord record = delete_record("FI\xFFLE", "key");
    EXPECT_EQ(behind(converted(record), 20), "FI^LE^key^app^user^tty^appid^source^");
}

TEST_F(Conversion, ARecordWithFiveEmptyFieldsHasEmptyTexts) {
    BuiltRecord record = record_of(EofType);
    record.strings = {"", "", "", "", ""};
    EXPECT_EQ(converted(record), "2^1^5000^61^EOF^1000^0^1^4711^3^why^^^^^^^^^^^^^^^^^^");
}

TEST_F(Conversion, AWriteShowsItsDataOnlyWhenTheEnvironmentAllowsIt) {
    EXPECT_EQ(behind(converted(write_record("FILE", "key", "a^b")), 27), "12^");
    setenv("ALLOWLOGDATA", "on", 1);
    EXPECT_EQ(behind(converted(write_record("FILE", "key", marks("a^b"))), 27), "12^^a^b");
    setenv("ALLOWLOGDATA", "", 1);
    EXPECT_EQ(behind(converted(write_record("FILE", "key", "data")), 27), "12^^data");
}

TEST_F(Conversion, TheLengthOfTheDataIsTheLowHalfOfEightBytes) {
    setenv("ALLOWLOGDATA", "on", 1);
    EXPECT_EQ(behind(converted(write_record("FILE", "key", "data", 0, 77)), 27), "12^^data");
}

TEST_F(Conversion, DataThatClaimsMoreThanThereIsEndsWithTheRecord) {
    setenv("ALLOWLOGDATA", "on", 1);
    EXPECT_EQ(behind(converted(record_of(WriteType, int32(0) + int32(0) + int32(1'000'000) + "da", "F", "k")), 27),
              "12^^da");
    EXPECT_EQ(behind(converted(record_of(WriteType, int32(0) + int32(0) + int32(-1) + "da", "F", "k")), 27), "12^^da");
    EXPECT_EQ(behind(converted(record_of(WriteType, int32(0), "F", "k")), 27), "12^");
}

TEST_F(Conversion, ATransactionShowsItsTwoValuesAndMovesItsText) {
    for (const int type : {TranStartType, TranEndType, TranAbortType}) {
        const std::string text = converted(transaction_record(type, 123456789012, 42, "because"));
        EXPECT_EQ(at(text, 12), "because");
        EXPECT_EQ(at(text, 22), "");
        EXPECT_EQ(at(text, 29), "123456789012");
        EXPECT_EQ(at(text, 30), "42");
    }
}

TEST_F(Conversion, ASecondValueWhoseLowHalfIsZeroIsAMark) {
    EXPECT_EQ(behind(converted(transaction_record(TranStartType, 5, std::int64_t{7} << 32)), 28), "5^^");
    EXPECT_EQ(behind(converted(transaction_record(TranStartType, -5, -1)), 28), "-5^-1");
}

TEST_F(Conversion, AMoveShowsBothPaths) {
    EXPECT_EQ(at(converted(move_record("/data/a", "/data/longer")), 21), marks("/data/a]/data/longer"));
}

TEST_F(Conversion, ARemovalADirectoryAndAFlatFileShowTheirPath) {
    EXPECT_EQ(at(converted(text_record(RemoveFileType, "/data/gone")), 21), "/data/gone");
    EXPECT_EQ(at(converted(mkdir_record("/data/dir")), 21), "/data/dir");
}

TEST_F(Conversion, TheNameOfAFlatFileLacksItsFirstFourCharacters) {
    EXPECT_EQ(at(converted(flat_file_record("/data/flat", "contents")), 21), "a/flat");
}

TEST_F(Conversion, ACheckpointShowsItsThreeAttributes) {
    const std::string text =
        converted(checkpoint_record(99, "name\xFE" + int64(1234567890123) + "\xFE" + int64(FirstTime)));
    EXPECT_EQ(at(text, 21), "name");
    EXPECT_EQ(at(text, 29) + at(text, 30) + at(text, 31), "");
    EXPECT_EQ(at(text, 32), "1234567890123");
    EXPECT_EQ(at(text, 33), std::to_string(FirstTime));
}

TEST_F(Conversion, ANumberOfACheckpointMayHoldAMark) {
    const std::string text = converted(checkpoint_record(99, "name\xFE" + int64(0xFEFE) + "\xFE" + int64(7)));
    EXPECT_EQ(at(text, 32), "65278");
    EXPECT_EQ(at(text, 33), "7");
}

TEST_F(Conversion, ACheckpointThatEndsTooEarlyShowsWhatItHas) {
    const std::string text = converted(checkpoint_record(99,
                                                         "name\xFE"
                                                         "123"));
    EXPECT_EQ(at(text, 21), "name");
    EXPECT_EQ(at(text, 32), "");
}

TEST_F(Conversion, PathsThatClaimMoreThanThereIsEndWithTheRecord) {
    for (const int type : {MoveFileType, RemoveFileType, MkdirType, FlatFileType})
        for (const std::int64_t length : {std::int64_t{INT32_MAX}, std::int64_t{-1}, std::int64_t{1000}})
            for (const int words : {0, 1, 2, 5})
                converted_bytes(record_bytes(record_of(type, int32(length) + std::string(4 * words, 'p')), 1, 0, 3660));
}

TEST_F(Conversion, AnythingElseAddsNothing) {
    for (const int type : {EofType, ClearFileType, DeleteFileType, CreateFileType, FlushType, ChmodType,
                           CreateIndexType, DeleteTriggerType, 16, 99})
        EXPECT_EQ(behind(converted(record_of(type, "payload")), 28), "") << type;
}

TEST_F(Conversion, TheAllocatorIsCalledOnlyWhenTheBufferIsTooSmall) {
    BuiltRecord record = delete_record("FILE", "key");
    const std::string bytes = record_bytes(record, 1, 0, 3660);
    const auto *const raw = reinterpret_cast<const unsigned char *>(bytes.data());
    static int calls = 0;
    const VELDALoggerAllocator counting = [](DP *session, char *old, uint32_t size) {
        ++calls;
        return allocate(session, old, size);
    };
    char *buffer = new char[200];
    const char *const before = buffer;
    uint32_t size = 200;
    calls = 0;
    ASSERT_EQ(VELDALoggerConvertRecord(dp, raw, "", &buffer, &size, counting), 0);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(buffer, before);
    EXPECT_LT(size, 200u);
    uint32_t exact = size;
    ASSERT_EQ(VELDALoggerConvertRecord(dp, raw, "", &buffer, &exact, counting), 0);
    EXPECT_EQ(calls, 0);
    uint32_t small = size - 1;
    ASSERT_EQ(VELDALoggerConvertRecord(dp, raw, "", &buffer, &small, counting), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(small, size);
    delete[] buffer;
}

TEST_F(Conversion, WithoutMemoryTheBufferStays) {
    const std::string bytes = record_bytes(delete_record("FILE", "key"), 1, 0, 3660);
    char *buffer = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(VELDALoggerConvertRecord(dp, reinterpret_cast<const unsigned char *>(bytes.data()), "", &buffer, &size,
                                       [](DP *, char *, uint32_t) -> char * { return nullptr; }),
              ENOMEM);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(size, 0u);
}

TEST_F(Conversion, DataOfAnySizeIsConverted) {
    setenv("ALLOWLOGDATA", "on", 1);
    const std::string data(100'000, 'd');
    EXPECT_EQ(behind(converted(write_record("FILE", "key", data)), 29), data);
}

}  // namespace
