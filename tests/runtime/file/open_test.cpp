// OPEN, CLOSE, shared handles, and what a file's cell tells.
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "runtime/store/control_block.h"
#include "tests/runtime/file/fixture.h"

namespace velda::test {
namespace {

class Open : public FileTest {
  protected:
    int open_dictionary(const VAR *selector, const std::string &name, VAR &target) const {
        const VAR wanted(name);
        return VLibFNEWOPEN_IIBBBB(dp, 0, selector, &wanted, &target, nullptr);
    }
    // How many files this process has open.
    static int open_files() {
        int count = 0;
        store::for_each_open_file([&](store::OpenFile &) { ++count; });
        return count;
    }
};

TEST_F(Open, AFileCellHasExactlyTheFileForm) {
    make_file();
    EXPECT_EQ(file.form, VELDA_FORM_FILE);
    EXPECT_TRUE(file.is_file());
    EXPECT_EQ(file.view(), "");
}

TEST_F(Open, TheDictionaryIsSelectedInManyWays) {
    ASSERT_EQ(create(path("F")), "");
    const auto opened = [&](const VAR *selector, const std::string &name) {
        VAR target, opened_path;
        return open_dictionary(selector, name, target) == 1 && VELDAGetFilenameFromVar(dp, &target, &opened_path)
                   ? opened_path.str().substr(directory.path().size() + 1)
                   : "not opened";
    };
    const VAR upper("DICT"), lower("dict"), data("DATA"), empty(""), zero(0), other("X");
    EXPECT_EQ(opened(nullptr, path("F")), "F");
    EXPECT_EQ(opened(&empty, path("F")), "F");
    EXPECT_EQ(opened(&zero, path("F")), "F");
    EXPECT_EQ(opened(&data, path("F")), "F");
    EXPECT_EQ(opened(nullptr, "DATA " + path("F")), "F");
    EXPECT_EQ(opened(&upper, path("F")), "F]D");
    EXPECT_EQ(opened(&lower, path("F")), "F]D");
    EXPECT_EQ(opened(nullptr, "DICT " + path("F")), "F]D");
    EXPECT_EQ(opened(nullptr, "dict " + path("F")), "F]D");
    EXPECT_EQ(opened(&other, path("F")), "not opened");
    EXPECT_EQ(dp->last_error, EINVAL);
}

TEST_F(Open, SectionsAndBackslashesName) {
    ASSERT_EQ(create(path("F") + ",SALES"), "");
    VAR target;
    EXPECT_EQ(open(path("F") + ",SALES", target), 1);
    EXPECT_EQ(open(directory.path() + "\\F,SALES", target), 1);
    EXPECT_EQ(open(path("F"), target), 0);
}

TEST_F(Open, ADotIsTheCurrentDirectory) {
    std::ofstream(path("record")) << "one\ntwo\n";
    const std::string before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    const int opened = open(".", file);
    std::filesystem::current_path(before);
    ASSERT_EQ(opened, 1);
    EXPECT_EQ(read("record"), (Read{1, "one^two"}));
}

TEST_F(Open, WhatCannotBeOpenedTakesTheElsePathWithItsReason) {
    std::ofstream(path("plain")) << "no database file";
    VAR target("before"), setting;
    const auto failed = [&](const std::string &name) {
        const VAR wanted(name);
        EXPECT_EQ(VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &wanted, &target, &setting), 0);
        EXPECT_EQ(setting.to_integer(), dp->last_error);
        return dp->last_error;
    };
    EXPECT_EQ(failed(path("missing")), ENOENT);
    EXPECT_EQ(failed(path("missing") + "/file"), ENOENT);
    EXPECT_EQ(failed(path("plain")), EINVAL);
    EXPECT_EQ(failed(""), EINVAL);
    EXPECT_EQ(target.view(), "before");
}

TEST_F(Open, TheOlderFormDoesTheSame) {
    ASSERT_EQ(create(path("F")), "");
    const VAR name(path("F")), dictionary("DICT"), missing(path("missing"));
    VAR setting;
    EXPECT_EQ(VLibFOPEN_IBBBB(dp, &dictionary, &name, &file, nullptr), 1);
    VAR opened;
    VELDAGetFilenameFromVar(dp, &file, &opened);
    EXPECT_EQ(opened.str(), path("F") + "]D");
    EXPECT_EQ(VLibFOPEN_IBBBB(dp, nullptr, &missing, &file, &setting), 0);
    EXPECT_EQ(setting.to_integer(), ENOENT);
}

TEST_F(Open, TheNameMayStandInTheTargetCell) {
    make_file();
    VAR cell(path("F"));
    EXPECT_EQ(VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &cell, &cell, nullptr), 1);
    EXPECT_TRUE(cell.is_file());
}

TEST_F(Open, ACopyOfTheCellSharesTheOpenFile) {
    make_file();
    VAR copy = file;
    EXPECT_EQ(copy.text, file.text);
    file = "";
    file = copy;
    copy = 0;
    EXPECT_EQ(write("K", "a"), 1);
}

TEST_F(Open, TheFileClosesWhenTheLastCellIsOverwritten) {
    const int before = open_files();
    make_file();
    EXPECT_EQ(open_files(), before + 1);
    {
        const VAR copy = file;
        file = 0;
        EXPECT_EQ(open_files(), before + 1);
    }
    EXPECT_EQ(open_files(), before);
}

TEST_F(Open, CloseMakesTheCellEmpty) {
    make_file();
    EXPECT_EQ(VLibFCLOSE_IB(dp, &file), 1);
    EXPECT_EQ(file.view(), "");
    EXPECT_FALSE(file.is_file());
    EXPECT_EQ(VLibFCLOSE_IB(dp, &file), 0);
}

TEST_F(Open, OpenWithoutTargetSetsTheDefaultFile) {
    make_file();
    const VAR name(path("F")), key("K"), record("a");
    VAR target;
    EXPECT_EQ(VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, nullptr, nullptr), 1);
    EXPECT_TRUE(VLibReturnDefaultFile(dp)->is_file());
    EXPECT_EQ(VLibFNEWWRITE_IIBBBIB(dp, 0, nullptr, &record, &key, 0, nullptr), 1);
    EXPECT_EQ(VLibFNEWREAD_IIBBBIB(dp, 0, nullptr, &target, &key, 0, nullptr), 1);
    EXPECT_EQ(target.view(), "a");
    EXPECT_EQ(VLibFCLOSE_IB(dp, nullptr), 1);
    EXPECT_FALSE(VLibReturnDefaultFile(dp)->is_file());
}

TEST_F(Open, EachContextHasItsOwnDefaultFile) {
    make_file();
    const VAR name(path("F"));
    DP *const other = velda_new_context();
    EXPECT_EQ(VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, nullptr, nullptr), 1);
    EXPECT_FALSE(VLibReturnDefaultFile(other)->is_file());
    velda_free_context(other);
    VLibFCLOSE_IB(dp, nullptr);
}

TEST_F(Open, TheFileNameOfACellThatIsNoFileIsNotStored) {
    make_file();
    VAR name("before");
    const VAR text("text"), number(16);
    EXPECT_EQ(VELDAGetFilenameFromVar(dp, &text, &name), 0);
    EXPECT_EQ(VELDAGetFilenameFromVar(dp, &number, &name), 0);
    EXPECT_EQ(name.view(), "before");
    EXPECT_EQ(VELDAGetFilenameFromVar(dp, &file, &name), 1);
    EXPECT_EQ(name.str(), path("F"));
}

TEST_F(Open, NotLoggedSetsBit1OfTheFlagWord) {
    make_file();
    auto *const block = reinterpret_cast<VediControlBlock *>(file.text);
    EXPECT_EQ(block->flags & 0x01, 0u);
    EXPECT_EQ(VELDACatalogSetFileNotLogged(dp, &file), 1);
    EXPECT_EQ(block->flags & 0x01, 0x01u);
    const VAR text("text");
    EXPECT_EQ(VELDACatalogSetFileNotLogged(dp, &text), 0);
}

TEST_F(Open, AFileMadeWithLogNoIsNotLogged) {
    ASSERT_EQ(create("DATA " + path("F") + " LOG=NO"), "");
    ASSERT_EQ(open(path("F"), file), 1);
    EXPECT_EQ(reinterpret_cast<VediControlBlock *>(file.text)->flags & 0x01, 0x01u);
}

TEST_F(Open, Bit80OfTheFlagWordTellsOfIndexes) {
    make_file();
    EXPECT_EQ(CheckIndex(dp, &file), 0);
    reinterpret_cast<VediControlBlock *>(file.text)->flags |= 0x80;
    EXPECT_EQ(CheckIndex(dp, &file), 1);
    const VAR text("text");
    EXPECT_EQ(CheckIndex(dp, &text), 0);
}

TEST_F(Open, Bit40OfTheSecondFlagWordIsTheQFlagUnlessIgnored) {
    make_file();
    EXPECT_EQ(VELDATestQFlag(dp, &file, 0), 0);
    reinterpret_cast<VediControlBlock *>(file.text)->flags2 |= 0x40;
    EXPECT_EQ(VELDATestQFlag(dp, &file, 0), 1);
    EXPECT_EQ(VELDATestQFlag(dp, &file, 1), 0);
    const VAR text("text");
    EXPECT_EQ(VELDATestQFlag(dp, &text, 0), 0);
}

}  // namespace
}  // namespace velda::test
