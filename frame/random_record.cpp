// A generator of test records.
#include "frame/utility_frame.h"

using namespace velda;
using namespace velda::frame;

namespace {

constexpr int LargeNumberBound = 100000000;
constexpr int DateSpreadDays = 730;
constexpr int TimeSpreadSeconds = 7200;
constexpr int LongestRun = 20;
constexpr int MostLetters = 10;
constexpr int KeyNumberBound = 10000;

int random_number(int limit) { return to_int(random_below(limit)); }

char random_letter() { return Alphabet[random_number(static_cast<int>(Alphabet.size()))]; }

VAR random_letters(int count) {
    VAR letters;
    for (int drawn = 0; drawn < count; ++drawn) append_text(letters, random_letter());
    return letters;
}

}  // namespace

VBC_SUBROUTINE(VELDARandomRecord, record, key) {
    record = "";
    record(1) = random_number(LargeNumberBound);
    record(2) = format(random_number(LargeNumberBound), "R%12");
    record(3) = today() - DateSpreadDays / 2 + random_number(DateSpreadDays);
    record(4) = time_of_day() - TimeSpreadSeconds / 2 + random_number(TimeSpreadSeconds);
    record(5) = str(random_letter(), random_number(LongestRun));
    record(6) = random_letters(random_number(MostLetters));
    key = cat(record(6), "*", random_number(KeyNumberBound));
}
