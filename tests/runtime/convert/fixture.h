// fixture.h - conversions as tests write them, tables of cases, and a time zone of one's own.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

#include "runtime/convert/conversion.h"
#include "tests/support/seed.h"

namespace velda::test {

inline conversions::Converted run(std::string_view value, std::string_view code, conversions::Direction direction) {
    return conversions::Conversion(code).run(value, direction);
}

inline std::string oconv(std::string_view value, std::string_view code) {
    return run(value, code, conversions::Direction::Output).text;
}

inline std::string iconv(std::string_view value, std::string_view code) {
    return run(value, code, conversions::Direction::Input).text;
}

inline conversions::Status oconv_status(std::string_view value, std::string_view code) {
    return run(value, code, conversions::Direction::Output).status;
}

inline conversions::Status iconv_status(std::string_view value, std::string_view code) {
    return run(value, code, conversions::Direction::Input).status;
}

inline bool is_bad_code(std::string_view code) {
    return oconv("123", code) == "\xFF" && iconv("123", code) == "\xFF" &&
           oconv_status("123", code) == conversions::Status::BadCode;
}

struct Case {
    std::string_view value;
    std::string_view code;
    std::string_view expected;
};

template <std::size_t N>
void expect_output(const Case (&cases)[N]) {
    for (const Case &c : cases) EXPECT_EQ(oconv(c.value, c.code), c.expected) << c.value << " by " << c.code;
}

template <std::size_t N>
void expect_input(const Case (&cases)[N]) {
    for (const Case &c : cases) EXPECT_EQ(iconv(c.value, c.code), c.expected) << c.value << " by " << c.code;
}

// Sets TZ while it lives.
class TimeZone {
  public:
    explicit TimeZone(const char *zone) {
        if (const char *before = std::getenv("TZ")) before_ = before;
        had_one_ = std::getenv("TZ") != nullptr;
        setenv("TZ", zone, 1);
    }
    ~TimeZone() {
        if (had_one_)
            setenv("TZ", before_.c_str(), 1);
        else
            unsetenv("TZ");
    }
    TimeZone(const TimeZone &) = delete;
    TimeZone &operator=(const TimeZone &) = delete;

  private:
    std::string before_;
    bool had_one_ = false;
};

}  // namespace velda::test
