// What updates leave in the journal.
#include "tests/runtime/journal/writer_fixture.h"

using namespace velda::test;

namespace {

class UpdateRecords : public WriterTest {
  protected:
    using Lines = std::vector<std::string>;
};

}  // namespace

TEST_F(UpdateRecords, AWriteIsInTheJournalWithFileKeyAndData) {
    make_set(1, 1);
    activate();
    make_file("F");
    VAR file = opened("F");
    write(file, "K", "a^b");
    const auto found = records();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].type, 2);
    EXPECT_EQ(found[0].strings, (Lines{path("F"), "K", "", "", "", "", "", ""}));
    EXPECT_EQ(found[0].payload, int32(0) + int32(0) + int32(3) +
                                    "a\xFE"
                                    "b");
    EXPECT_EQ(found[0].pid, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(found[0].port, VELDAGetPortNumber(dp));
    EXPECT_EQ(found[0].set, 1);
    EXPECT_GE(found[0].time, config->sets[0].timeFirst);
    EXPECT_EQ(read(file, "K"), "a^b");
}

TEST_F(UpdateRecords, ADeleteIsInTheJournalAndOneOfNoRecordIsNot) {
    make_set(1, 1);
    activate();
    make_file("F");
    VAR file = opened("F");
    write(file, "K", "a");
    remove(file, "K");
    remove(file, "nothing");
    EXPECT_EQ(summary(), (Lines{"WRITE F K", "DELETE F K"}));
    EXPECT_EQ(records()[1].payload, int32(0));
}

TEST_F(UpdateRecords, ManyRecordsOverThreeFilesStandInTheirOrder) {
    make_set(1, 3);
    activate();
    make_file("F");
    VAR file = opened("F");
    for (int n = 0; n < 500; ++n) write(file, n, std::string(static_cast<std::size_t>(n * 7 % 900), 'x'));
    write(file, "large", std::string(100000, 'y'));
    write(file, "last", "z");
    const auto found = records();
    ASSERT_EQ(found.size(), 502u);
    for (int n = 0; n < 500; ++n) EXPECT_EQ(found[n].strings[1], std::to_string(n));
    EXPECT_EQ(found[500].payload.size(), 100012u);
    EXPECT_EQ(found[501].strings[1], "last");
}

TEST_F(UpdateRecords, ClearfileIsOneRecord) {
    make_set(1, 1);
    activate();
    make_file("F");
    VAR file = opened("F");
    write(file, "K", "a");
    VLibFNEWCLEARFILE_IIBB(dp, 0, &file, nullptr);
    EXPECT_EQ(summary(), (Lines{"WRITE F K", "CLEARFILE F"}));
}
