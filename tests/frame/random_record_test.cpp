// The generator of test records.
#include <set>

#include "frame/utility_frame.h"
#include "tests/support/command.h"

using namespace velda;
using namespace velda::test;

namespace {

struct Sample {
    VAR record, key;
};

std::vector<Sample> samples(int count) {
    std::vector<Sample> drawn(count);
    run_command("RANDOM", [&](DP *dp) {
        for (Sample &sample : drawn) VBC_VELDARandomRecord(dp, "VV", &sample.record, &sample.key);
    });
    return drawn;
}

TEST(RandomRecord, HasSixAttributesWithinTheirBounds) {
    const int day = VLibGInternalLocalDate(velda_getdp());
    const int second = VLibGInternalLocalTime(velda_getdp());
    for (const Sample &sample : samples(300)) {
        const VAR &record = sample.record;
        ASSERT_LE(dcount(record, AM), 6) << shown(record.view());
        EXPECT_TRUE(matches(record(1), "1N0N")) << shown(record.view());
        EXPECT_LT(record(1).to_integer(), 100000000);
        EXPECT_TRUE(matches(record(2), "12N")) << shown(record.view());
        EXPECT_LT(record(2).to_integer(), 100000000);
        EXPECT_GE(record(3).to_integer(), day - 365);
        EXPECT_LE(record(3).to_integer(), day - 365 + 730);
        EXPECT_GE(record(4).to_integer(), second - 3600);
        EXPECT_LE(record(4).to_integer(), second - 3600 + 7200 + 5);
        EXPECT_LT(record(5).size(), 20u);
        EXPECT_EQ(record(5).str(), std::string(record(5).size(), record(5).str().c_str()[0]));
        EXPECT_LT(record(6).size(), 10u);
        for (const char byte : record(5).str() + record(6).str()) EXPECT_TRUE(byte >= 'A' && byte <= 'Z') << byte;
    }
}

TEST(RandomRecord, ReachesFarIntoEachRange) {
    const int day = VLibGInternalLocalDate(velda_getdp());
    std::int64_t largest = 0, largest_padded = 0, first_day = day, last_day = day, longest_run = 0, most_letters = 0;
    for (const Sample &sample : samples(500)) {
        largest = std::max(largest, sample.record(1).to_integer());
        largest_padded = std::max(largest_padded, sample.record(2).to_integer());
        first_day = std::min(first_day, sample.record(3).to_integer());
        last_day = std::max(last_day, sample.record(3).to_integer());
        longest_run = std::max<std::int64_t>(longest_run, sample.record(5).size());
        most_letters = std::max<std::int64_t>(most_letters, sample.record(6).size());
    }
    // Each is missed by less than one run in 10^11.
    EXPECT_GT(largest, 90000000);
    EXPECT_GT(largest_padded, 90000000);
    EXPECT_LT(first_day, day - 365 + 73);
    EXPECT_GT(last_day, day - 365 + 657);
    EXPECT_EQ(longest_run, 19);
    EXPECT_EQ(most_letters, 9);
}

TEST(RandomRecord, GetsAKeyOfItsLastAttributeAndANumberBelowTenThousand) {
    for (const Sample &sample : samples(100)) {
        EXPECT_EQ(field(sample.key, "*", 1).str(), VAR(sample.record(6)).str());
        EXPECT_TRUE(matches(field(sample.key, "*", 2), "1N0N")) << sample.key.str();
        EXPECT_LT(field(sample.key, "*", 2).to_integer(), 10000);
    }
}

TEST(RandomRecord, DiffersFromTheOneBefore) {
    std::set<std::string> distinct;
    for (const Sample &sample : samples(50)) distinct.insert(sample.record.str());
    EXPECT_GT(distinct.size(), 45u);
}

}  // namespace
