#include "runtime/config/emulation.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <fstream>

#include "runtime/config/config.h"
#include "runtime/config/emulation_section.h"
#include "runtime/config/text_file.h"
#include "tests/support/scratch.h"

using velda::emulation_section;
using velda::EmulationSettings;

namespace {

constexpr const char *Text = R"(# sections of a test
main:
alias:
	one = 1
    two=2
    dup = extra
    TWO = not two
extra:
    one = from extra
    three = 3
other:
    one = last
)";

EmulationSettings section(const char *name) {
    const auto settings = emulation_section(Text, name);
    EXPECT_TRUE(settings.ok());
    return settings.ok() ? *settings : EmulationSettings();
}

class Emulation : public testing::Test {
  protected:
    void TearDown() override { unsetenv("VELDAEMULATION"); }

    void use_file(const std::string &content) {
        std::ofstream(release_ / "emulation") << content;
        setenv("VBCRELEASEDIR", release_.path().c_str(), 1);
    }

    velda::test::ScratchSystem system;

  private:
    velda::test::ScratchDirectory release_;
};

}  // namespace

TEST(EmulationSection, EndsAtATagThatDoesNotFollowATag) {
    EXPECT_EQ(section("extra"), (EmulationSettings{{"one", "from extra"}, {"three", "3"}}));
}
TEST(EmulationSection, ConsecutiveTagsNameOneSection) { EXPECT_EQ(section("main"), section("alias")); }
TEST(EmulationSection, TagsAreComparedInAnyCase) { EXPECT_EQ(section("MAIN"), section("main")); }
TEST(EmulationSection, ADuplicatedSectionIsAppliedFirstWhereverItStands) {
    EXPECT_EQ(section("main"), (EmulationSettings{{"one", "1"}, {"two", "2"}, {"three", "3"}, {"TWO", "not two"}}));
}
TEST(EmulationSection, ALaterLineOverridesAnEarlierOne) {
    EXPECT_EQ((*emulation_section("s:\na = 1\na = 2\n", "s"))["a"], "2");
}
TEST(EmulationSection, ALineWithoutEqualsSignHasAnEmptyValue) {
    EXPECT_EQ(*emulation_section("s:\nalone\n", "s"), (EmulationSettings{{"alone", ""}}));
}
TEST(EmulationSection, AnAbsentSectionIsAnError) {
    const auto settings = emulation_section(Text, "nowhere");
    ASSERT_FALSE(settings.ok());
    EXPECT_EQ(settings.error().number, 2);
    EXPECT_EQ(settings.error().message, "no emulation section 'nowhere'");
    EXPECT_EQ(emulation_section("a:\ndup = b\n", "a").error().message, "no emulation section 'b'");
}
TEST(EmulationSection, SectionsThatTakeOverEachOtherAreAnError) {
    const auto settings = emulation_section("a:\ndup = b\nb:\ndup = a\n", "a");
    ASSERT_FALSE(settings.ok());
    EXPECT_EQ(settings.error().number, ELOOP);
}

TEST_F(Emulation, SettingsOfTheDefaultSectionAreZero) {
    for (const auto &setting : velda::emulation_settings()) EXPECT_EQ(VELDAEmulateGETINT(nullptr, setting.number), 0);
}
TEST_F(Emulation, TheEnvironmentNamesTheSection) {
    setenv("VELDAEMULATION", "ignore_case", 1);
    EXPECT_EQ(VELDAEmulateGETINT(nullptr, 126), 1);
    EXPECT_EQ(VLibEmulateGetIntVELDA(nullptr, 102), 1);
    EXPECT_EQ(VELDAEmulateGETINT(nullptr, 131), 0);
    unsetenv("VELDAEMULATION");
    EXPECT_EQ(VELDAEmulateGETINT(nullptr, 126), 0);
}
TEST_F(Emulation, EachNumberIsReadUnderItsName) {
    std::string content = "default:\n";
    for (const auto &setting : velda::emulation_settings())
        content += std::string(setting.name) + " = " + std::to_string(setting.number + 1000) + "\n";
    use_file(content);
    for (const int number : {0, 3, 17, 22, 30, 34, 77, 79, 86, 98, 102, 126, 127, 131})
        EXPECT_EQ(VELDAEmulateGETINT(nullptr, number), number + 1000);
}
TEST_F(Emulation, AnUnknownNumberIsZero) {
    EXPECT_EQ(VELDAEmulateGETINT(nullptr, 1), 0);
    EXPECT_EQ(VELDAEmulateGETINT(nullptr, -5), 0);
}
TEST_F(Emulation, TheSystemsFileNamesEverySetting) {
    const auto content = velda::read_text_file(VELDA_SOURCE_DIR "/share/emulation");
    ASSERT_TRUE(content.ok());
    const auto settings = emulation_section(*content, "default");
    ASSERT_TRUE(settings.ok());
    EXPECT_EQ(settings->size(), velda::emulation_settings().size());
    for (const auto &setting : velda::emulation_settings())
        EXPECT_TRUE(settings->contains(setting.name)) << setting.name;
}
TEST_F(Emulation, NumbersOfTheTableAscend) {
    const auto settings = velda::emulation_settings();
    EXPECT_TRUE(std::is_sorted(settings.begin(), settings.end(),
                               [](const auto &a, const auto &b) { return a.number < b.number; }));
}
TEST_F(Emulation, AnAbsentSectionIsToldOnceAndDefaultsHold) {
    setenv("VELDAEMULATION", "nowhere", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(VELDAEmulateGETINT(nullptr, 34), 0);
    EXPECT_EQ(VELDAEmulateGETINT(nullptr, 131), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "no emulation section 'nowhere'; emulation settings have their defaults\n");
}
TEST_F(Emulation, AMissingFileIsNamed) {
    setenv("VBCRELEASEDIR", "/no/such/place", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(VELDAEmulateGETINT(nullptr, 34), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cannot open file '/no/such/place/emulation': No such file or directory; emulation settings have their "
              "defaults\n");
}
TEST_F(Emulation, AValueThatIsNoNumberIsTheDefault) {
    use_file("default:\nno_list_means_all = yes\n");
    EXPECT_EQ(VELDAEmulateGETINT(nullptr, 34), 0);
}
