// CREATE-FILE and DELETE-FILE.
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "tests/runtime/file/fixture.h"

namespace velda::test {
namespace {

class FileMaker : public FileTest {
  protected:
    // The sections of file F that can be opened: "data dict".
    std::string parts(const std::string &name = "F") {
        VAR target;
        std::string found;
        if (open(path(name), target) == 1) found += "data ";
        if (open("DICT " + path(name), target) == 1) found += "dict ";
        return found;
    }
    std::string status_of(const std::string &name, int attribute) {
        VAR target, status;
        EXPECT_EQ(open(name, target), 1);
        VLibFSTATUS_IBBB(dp, &status, &target, nullptr);
        return shown(status(attribute).view());
    }
    std::string failure(const std::string &reason) { return "FILE_CREATE]" + path("F") + "]" + reason; }
};

TEST_F(FileMaker, AFileIsMadeWithItsDictionary) {
    EXPECT_EQ(create(path("F") + " 1 11"), "");
    EXPECT_EQ(parts(), "data dict ");
    EXPECT_EQ(status_of(path("F"), VELDA_STATUS_OPTIONS), "1]11");
}

TEST_F(FileMaker, EitherPartCanBeMadeAlone) {
    EXPECT_EQ(create("DICT " + path("F")), "");
    EXPECT_EQ(parts(), "dict ");
    EXPECT_EQ(create("DATA " + path("F")), "");
    EXPECT_EQ(parts(), "data dict ");
    EXPECT_EQ(create("data " + path("G")), "");
    EXPECT_EQ(parts("G"), "data ");
}

TEST_F(FileMaker, TheNameMayHoldTheSelector) {
    const VAR words("DICT " + path("F"));
    EXPECT_EQ(velda_create_file(dp, &words, nullptr), 1);
    EXPECT_EQ(parts(), "dict ");
}

TEST_F(FileMaker, ASectionSharesTheDictionary) {
    EXPECT_EQ(create(path("F") + ",ONE"), "");
    EXPECT_EQ(create(path("F") + ",TWO"), "");
    EXPECT_EQ(parts(), "dict ");
    EXPECT_EQ(remove_file(path("F") + ",ONE"), "");
    EXPECT_EQ(parts(), "dict ");
    VAR target;
    EXPECT_EQ(open(path("F") + ",TWO", target), 1);
    EXPECT_EQ(open(path("F") + ",ONE", target), 0);
}

TEST_F(FileMaker, TypeIsForTheDataSection) {
    EXPECT_EQ(create(path("F") + " TYPE=UD"), "");
    EXPECT_EQ(status_of(path("F"), VELDA_STATUS_TYPE), "UD");
    EXPECT_EQ(status_of("DICT " + path("F"), VELDA_STATUS_TYPE), "HL");
    EXPECT_EQ(create("DICT " + path("G") + " type=ud"), "");
    EXPECT_EQ(status_of("DICT " + path("G"), VELDA_STATUS_TYPE), "UD");
}

TEST_F(FileMaker, OptionsAndSettingsStandAnywhere) {
    EXPECT_EQ(create("-B -L -T " + path("F") + " 1,1 23,1"), "");
    EXPECT_EQ(status_of(path("F"), VELDA_STATUS_OPTIONS), "-B]-L]-T]1,1]23,1");
    EXPECT_EQ(status_of(path("F"), VELDA_STATUS_LOGGED), "0");
    EXPECT_EQ(create("PERMS=0600 LOG=NO " + path("G")), "");
    EXPECT_EQ(status_of(path("G"), VELDA_STATUS_PERMISSIONS), "0600");
    EXPECT_EQ(status_of(path("G"), VELDA_STATUS_LOGGED), "0");
    EXPECT_EQ(create(path("H") + " LOG=YES DURABILITY=LAZY"), "");
    EXPECT_EQ(status_of(path("H"), VELDA_STATUS_LOGGED), "1");
    EXPECT_EQ(status_of(path("H"), VELDA_STATUS_DURABILITY), "lazy");
    EXPECT_EQ(status_of("DICT " + path("H"), VELDA_STATUS_DURABILITY), "lazy");
}

TEST_F(FileMaker, PermissionsReachTheDisk) {
    EXPECT_EQ(create(path("F") + " PERMS=0600"), "");
    struct stat status;
    ASSERT_EQ(stat(path("F").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(FileMaker, WrongWordsAreRefusedBeforeAnythingIsMade) {
    EXPECT_EQ(create(path("F") + " PERMS=0999"), failure("PERMS wants octal digits, not '0999'"));
    EXPECT_EQ(create(path("F") + " PERMS="), failure("PERMS wants octal digits up to 7777, not ''"));
    EXPECT_EQ(create(path("F") + " PERMS=77777"), failure("PERMS wants octal digits up to 7777, not '77777'"));
    EXPECT_EQ(create(path("F") + " LOG=MAYBE"), failure("LOG wants YES or NO, not 'MAYBE'"));
    EXPECT_EQ(create(path("F") + " TYPE=XX"), failure("TYPE wants UD (directory) or HL (hashed), not 'XX'"));
    EXPECT_EQ(create(path("F") + " DURABILITY=NONE"), failure("DURABILITY wants SYNC or LAZY, not 'NONE'"));
    EXPECT_EQ(create(path("F") + " -X"), failure("unknown option '-X'"));
    EXPECT_EQ(create(path("F") + " word"), failure("unknown word 'word'"));
    EXPECT_EQ(dp->last_error, EINVAL);
    EXPECT_EQ(parts(), "");
}

TEST_F(FileMaker, WithoutANameTheMessageIsKey200) {
    EXPECT_EQ(create(""), "200");
    EXPECT_EQ(create("DICT"), "200");
    EXPECT_EQ(remove_file(""), "200");
}

TEST_F(FileMaker, AnExistingFileIsNotReplaced) {
    ASSERT_EQ(create(path("F")), "");
    ASSERT_EQ(open(path("F"), file), 1);
    write("K", "a");
    EXPECT_NE(create(path("F")), "");
    EXPECT_EQ(dp->last_error, EEXIST);
    EXPECT_EQ(read("K").record, "a");
    EXPECT_EQ(parts(), "data dict ");
}

TEST_F(FileMaker, NothingHalfMadeStays) {
    ASSERT_EQ(create("DATA " + path("F")), "");
    EXPECT_NE(create(path("F")), "");
    EXPECT_EQ(parts(), "data ");
    EXPECT_NE(create(path("missing/F")), "");
    EXPECT_EQ(dp->last_error, ENOENT);
}

TEST_F(FileMaker, DeleteRemovesBothPartsOrTheOneThatIsNamed) {
    ASSERT_EQ(create(path("F")), "");
    EXPECT_EQ(remove_file(path("F")), "");
    EXPECT_EQ(parts(), "");
    ASSERT_EQ(create(path("F")), "");
    EXPECT_EQ(remove_file("DICT " + path("F")), "");
    EXPECT_EQ(parts(), "data ");
    ASSERT_EQ(create("DICT " + path("F")), "");
    EXPECT_EQ(remove_file("DATA " + path("F")), "");
    EXPECT_EQ(parts(), "dict ");
}

TEST_F(FileMaker, AFileWithoutDictionaryCanBeDeleted) {
    ASSERT_EQ(create("DATA " + path("F")), "");
    EXPECT_EQ(remove_file(path("F")), "");
    EXPECT_EQ(parts(), "");
}

TEST_F(FileMaker, DeletingWhatIsNotThereNamesItAndTheReason) {
    EXPECT_EQ(remove_file(path("F")).substr(0, 12 + path("F").size()), "FILE_REMOVE]" + path("F"));
    EXPECT_EQ(dp->last_error, ENOENT);
    std::ofstream(path("plain")) << "text";
    EXPECT_NE(remove_file(path("plain")), "");
    EXPECT_TRUE(std::filesystem::exists(path("plain")));
}

}  // namespace
}  // namespace velda::test
