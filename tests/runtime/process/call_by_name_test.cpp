#include "runtime/process/call_by_name.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/runtime/process/command_fixture.h"

using velda::test::CommandTest;
using velda::test::ScratchDirectory;

VBC_SUBROUTINE(TestTwice, result, value) { result = VAR(value.to_integer() * 2); }
VBC_SUBROUTINE(test_plain_underscore, result) { result = "plain"; }
VBC_SUBROUTINE(test_5Fescaped, result) { result = "underscore"; }
VBC_SUBROUTINE(test_2Ddash, result) { result = "dash"; }

namespace {

class CallByName : public CommandTest {
  protected:
    void TearDown() override { unsetenv("VBCDEV_LIB"); }

    // A cataloged shared object, made of a C source.
    static void catalog(const ScratchDirectory &directory, const std::string &object, const std::string &source) {
        std::ofstream(directory / (object + ".c")) << source;
        // Renamed into place, as a library is replaced.
        const std::string command = "cd " + directory.path() + " && cc -shared -fPIC -o new.tmp " + object +
                                    ".c && mv new.tmp " + object + ".so";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
};

}  // namespace

TEST_F(CallByName, TheBridgeGivesOneLetterForEachCell) {
    VAR result, value(21);
    VLibCCALL_FUNCTION(dp, "TestTwice", 2, &result, &value);
    EXPECT_EQ(result.to_integer(), 42);
}

TEST_F(CallByName, EscapesStandForUnderscoreAndDash) {
    EXPECT_EQ(velda::subroutine_symbol("A_B-C"), "VBC_A_5FB_2DC");
    VAR result;
    velda::call("test_escaped", result);
    EXPECT_EQ(result.view(), "underscore");
    velda::call("test-dash", result);
    EXPECT_EQ(result.view(), "dash");
}

TEST_F(CallByName, APlainUnderscoreIsFoundToo) {
    VAR result;
    velda::call("test_plain_underscore", result);
    EXPECT_EQ(result.view(), "plain");
}

TEST_F(CallByName, AnUnknownNameEndsTheCommandWithTheMessage) {
    int code = 0;
    const std::string output = printed_by([] { velda::call("TestAbsent"); }, &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(output, "Subroutine 'TestAbsent' not found\n");
}

TEST_F(CallByName, LookingUpAnUnknownNameGivesNull) {
    EXPECT_EQ(VLibCCALL_DIR_DYN_NOERROR(dp, "TestAbsent"), nullptr);
    EXPECT_EQ(VediObjectFindFunction(dp, "TestAbsent", 2), nullptr);
    EXPECT_EQ(VediObjectFindFunction(dp, "", 2), nullptr);
    EXPECT_NE(VLibCCALL_DIR_DYN_NOERROR(dp, "TestTwice"), nullptr);
}

TEST_F(CallByName, ExistenceIsSetInTheResultCell) {
    VAR result("before"), name("TestTwice"), absent("TestAbsent");
    EXPECT_EQ(VELDASubroutineExist(dp, &result, &name), 1);
    EXPECT_EQ(result.to_integer(), 1);
    EXPECT_EQ(VELDASubroutineExist(dp, &result, &absent), 0);
    EXPECT_EQ(result.to_integer(), 0);
}

TEST_F(CallByName, MoreCellsThanASubroutineTakesIsAFailedCall) {
    EXPECT_EQ(run([&] { VLibCCALL_FUNCTION(dp, "TestTwice", VELDA_MAX_ARGUMENTS + 1); }), 1);
}

TEST_F(CallByName, TheSitesHookIsCalledOnlyWhenItExists) {
    VAR cell("untouched");
    EXPECT_EQ(VELDACallCustomerCustom(dp, &cell), 0);
    EXPECT_EQ(cell.view(), "untouched");

    const ScratchDirectory library;
    catalog(library, "site", R"(
        struct cell { unsigned short form; unsigned char extra, precision; unsigned reserved; double image; long integer; };
        void VBC_VBCUserCustomiseDisplay(void *dp, const char *letters, struct cell *cell) {
            cell->integer = letters[0] == 'V' && letters[1] == 0 ? 99 : -1;
        })");
    setenv("VBCDEV_LIB", library.path().c_str(), 1);
    VAR number(1);
    EXPECT_EQ(VELDACallCustomerCustom(dp, &number), 1);
    EXPECT_EQ(number.to_integer(), 99);
}

TEST_F(CallByName, CatalogedObjectsAreFoundInAListOfDirectories) {
    const ScratchDirectory empty, library;
    catalog(library, "lib0", "void VBC_TestCataloged(void *dp, const char *letters) {}");
    EXPECT_FALSE(velda::subroutine_exists("TestCataloged"));
    setenv("VBCDEV_LIB", (empty.path() + "::/no/such/directory:" + library.path()).c_str(), 1);
    EXPECT_TRUE(velda::subroutine_exists("TestCataloged"));
    EXPECT_FALSE(velda::subroutine_exists("TestNotCataloged"));
}

TEST_F(CallByName, AnObjectCatalogedLaterIsFound) {
    const ScratchDirectory library;
    setenv("VBCDEV_LIB", library.path().c_str(), 1);
    EXPECT_FALSE(velda::subroutine_exists("TestLater"));
    catalog(library, "later", "void VBC_TestLater(void *dp, const char *letters) {}");
    EXPECT_TRUE(velda::subroutine_exists("TestLater"));
}

TEST_F(CallByName, AnObjectThatCannotBeLoadedIsNamedAndTheOthersServe) {
    const ScratchDirectory library;
    std::ofstream(library / "broken.so") << "no object";
    catalog(library, "sound", "void VBC_TestBesideBroken(void *dp, const char *letters) {}");
    setenv("VBCDEV_LIB", library.path().c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(velda::subroutine_exists("TestBesideBroken"));
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find("cannot load '" + library / "broken.so" + "'"), std::string::npos) << errors;
}
