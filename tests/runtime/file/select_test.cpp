// Select lists: from files, from dynamic arrays, the default list, saved lists.
#include <algorithm>
#include <cerrno>

#include "runtime/file/facade.h"
#include "tests/runtime/file/fixture.h"

namespace velda::test {
namespace {

using Keys = std::vector<std::string>;

class Select : public FileTest {
  protected:
    int select(const VAR &source, VAR *target) { return VLibFSELECT_IBBB(dp, &source, target, nullptr); }
    VAR list_of(const std::string &keys) {
        VAR list;
        EXPECT_EQ(select(marks(keys), &list), 1);
        return list;
    }
    VAR list_of_file() {
        VAR list;
        EXPECT_EQ(select(file, &list), 1);
        return list;
    }
    std::string next(VAR *list) {
        VAR key("before");
        const int result = VLibFREADNEXT_IBBBBB(dp, &key, nullptr, nullptr, list, nullptr);
        return result == 1 ? shown(key.view()) : "end" + key.str();
    }
    void write_keys(int count) {
        for (int i = 1; i <= count; ++i) write("K" + std::to_string(i), "record");
    }
    Keys sorted(Keys keys) {
        std::sort(keys.begin(), keys.end());
        return keys;
    }
};

TEST_F(Select, AFileGivesAllItsKeys) {
    for (const char *type : {"HL", "UD"}) {
        ASSERT_EQ(create("DATA " + path(type) + " TYPE=" + type), "");
        ASSERT_EQ(open(path(type), file), 1);
        write_keys(3);
        VAR list = list_of_file();
        EXPECT_EQ(sorted(keys_of(list)), (Keys{"K1", "K2", "K3"})) << type;
        EXPECT_EQ(next(&list), "end");
    }
}

TEST_F(Select, AnArrayGivesItsAttributesAsKeys) {
    VAR list = list_of("a^b c^d]e^f");
    EXPECT_EQ(keys_of(list), (Keys{"a", "b c", "d]e", "f"}));
    list = list_of("");
    EXPECT_EQ(keys_of(list), Keys{});
    list = list_of("a^^b^");
    EXPECT_EQ(keys_of(list), (Keys{"a", "", "b", ""}));
    VAR of_number;
    EXPECT_EQ(select(12, &of_number), 1);
    EXPECT_EQ(keys_of(of_number), (Keys{"12"}));
}

TEST_F(Select, ReadnextAtTheEndGivesTheEmptyStringAgainAndAgain) {
    VAR list = list_of("a");
    EXPECT_EQ(next(&list), "a");
    EXPECT_EQ(next(&list), "end");
    EXPECT_EQ(next(&list), "end");
}

TEST_F(Select, ReadnextSetsValuePositionsToZero) {
    VAR list = list_of("a"), key, value("x"), subvalue("y");
    EXPECT_EQ(VLibFREADNEXT_IBBBBB(dp, &key, &value, &subvalue, &list, nullptr), 1);
    EXPECT_EQ(value.view(), "0");
    EXPECT_EQ(subvalue.view(), "0");
}

TEST_F(Select, APlainStringIsAListOfKeysForReadnext) {
    VAR list(marks("a^b"));
    EXPECT_EQ(next(&list), "a");
    EXPECT_EQ(next(&list), "b");
    EXPECT_EQ(next(&list), "end");
    VAR unassigned;
    EXPECT_EQ(next(&unassigned), "end");
}

TEST_F(Select, ACopyOfAStringMadeBeforeReadnextKeepsAllKeys) {
    VAR list(marks("a^b"));
    VAR copy = list;
    EXPECT_EQ(keys_of(list), (Keys{"a", "b"}));
    EXPECT_EQ(keys_of(copy), (Keys{"a", "b"}));
}

TEST_F(Select, CopiesOfAListNameTheSameList) {
    VAR list = list_of("a^b^c");
    VAR copy = list;
    EXPECT_EQ(next(&list), "a");
    EXPECT_EQ(next(&copy), "b");
    list = "";
    EXPECT_EQ(next(&copy), "c");
    EXPECT_EQ(next(&copy), "end");
}

TEST_F(Select, AListReadsAsTheKeysNotYetRead) {
    VAR list = list_of("a^b^c");
    EXPECT_EQ(shown(list.view()), "a^b^c");
    next(&list);
    EXPECT_EQ(shown(list.view()), "b^c");
    const VAR text(list.view());
    EXPECT_EQ(keys_of(list), (Keys{"b", "c"}));
    EXPECT_EQ(list.view(), "");
    EXPECT_EQ(shown(text.view()), "b^c");
}

TEST_F(Select, AStreamingListReadAsTextGathersItsKeysAndGoesOn) {
    make_file();
    write_keys(3);
    VAR list = list_of_file();
    const std::string first = next(&list);
    const std::string rest = shown(list.view());
    EXPECT_EQ(rest.size(), std::string("K1^K2").size());
    Keys all = keys_of(list);
    EXPECT_EQ(rest, all.at(0) + "^" + all.at(1));
    all.push_back(first);
    EXPECT_EQ(sorted(all), (Keys{"K1", "K2", "K3"}));
}

TEST_F(Select, TheListOutlivesTheCellOfItsFile) {
    make_file();
    write_keys(3);
    VAR list = list_of_file();
    file = "";
    EXPECT_EQ(sorted(keys_of(list)), (Keys{"K1", "K2", "K3"}));
}

TEST_F(Select, RecordsMayBeDeletedAndWrittenDuringTheWalk) {
    make_file("HL DURABILITY=LAZY");
    write_keys(500);
    VAR list = list_of_file(), key;
    int seen = 0;
    while (VLibFREADNEXT_IBBBBB(dp, &key, nullptr, nullptr, &list, nullptr) == 1) {
        EXPECT_EQ(remove(key), 1);
        ++seen;
    }
    EXPECT_EQ(seen, 500);
    list = list_of_file();
    EXPECT_EQ(next(&list), "end");
}

TEST_F(Select, TheKeyMayGoIntoTheCellOfTheList) {
    VAR both = list_of("a^b");
    EXPECT_EQ(VLibFREADNEXT_IBBBBB(dp, &both, nullptr, nullptr, &both, nullptr), 1);
    EXPECT_EQ(both.view(), "a");
}

TEST_F(Select, AFileCellIsNoListAndStaysOpen) {
    make_file();
    EXPECT_EQ(next(&file), "end");
    EXPECT_EQ(dp->last_error, EINVAL);
    EXPECT_TRUE(file.is_file());
}

TEST_F(Select, SelectOfWhatIsNoOpenFileStopsOrTellsTheReason) {
    VAR list, setting;
    EXPECT_EQ(message_of_stop([&] { VLibFSELECT_IBBB(dp, nullptr, &list, nullptr); }),
              "Cannot select the records of file '': the variable holds no open file");
    EXPECT_EQ(VLibFSELECT_IBBB(dp, nullptr, &list, &setting), 0);
    EXPECT_EQ(setting.to_integer(), EBADF);
}

TEST_F(Select, TheDefaultListHasALengthAndEndsWithItsLastKey) {
    EXPECT_EQ(VRunCountDefaultSel(dp), 0);
    select(marks("a^b^c"), nullptr);
    EXPECT_EQ(VRunCountDefaultSel(dp), 3);
    EXPECT_EQ(next(nullptr), "a");
    EXPECT_EQ(VRunCountDefaultSel(dp), 2);
    next(nullptr);
    next(nullptr);
    EXPECT_EQ(VRunCountDefaultSel(dp), 0);
    EXPECT_EQ(next(nullptr), "end");
    EXPECT_EQ(VLibReturnDefaultSelect(dp)->view(), "");
}

TEST_F(Select, System11IsTheLengthOfTheActiveList) {
    VAR length;
    EXPECT_FALSE(*VLibESYSTEM_BBI(dp, &length, 11));
    select(marks("a^b"), nullptr);
    EXPECT_EQ(VLibESYSTEM_BBI(dp, &length, 11)->view(), "2");
}

TEST_F(Select, TheLengthOfAStreamingDefaultListCountsDown) {
    make_file();
    write_keys(4);
    select(file, nullptr);
    for (int left = 4; left > 0; --left) {
        EXPECT_EQ(VRunCountDefaultSel(dp), left);
        EXPECT_NE(next(nullptr), "end");
    }
    EXPECT_EQ(VRunCountDefaultSel(dp), 0);
}

TEST_F(Select, AnActiveListCountsAtLeastOneWhateverOthersDelete) {
    make_file();
    write_keys(4);
    select(file, nullptr);
    EXPECT_EQ(VRunCountDefaultSel(dp), 4);
    next(nullptr);
    VLibFNEWCLEARFILE_IIBB(dp, 0, &file, nullptr);
    int keys = 0;
    while (VRunCountDefaultSel(dp) > 0) {
        ASSERT_NE(next(nullptr), "end");
        ASSERT_LE(++keys, 3);
    }
    EXPECT_EQ(next(nullptr), "end");
}

TEST_F(Select, AnEmptyListIsNoActiveDefaultList) {
    make_file();
    select(marks("a"), nullptr);
    select(file, nullptr);
    EXPECT_EQ(VRunCountDefaultSel(dp), 0);
    EXPECT_EQ(VLibReturnDefaultSelect(dp)->form & VELDA_FORM_LIST, 0);
    select("", nullptr);
    EXPECT_EQ(VRunCountDefaultSel(dp), 0);
}

TEST_F(Select, EachContextHasItsOwnDefaultList) {
    DP *const other = velda_new_context();
    select(marks("a"), nullptr);
    EXPECT_EQ(VRunCountDefaultSel(other), 0);
    velda_free_context(other);
    EXPECT_EQ(next(nullptr), "a");
}

TEST_F(Select, TheDefaultFileAsSourceHandsOverTheActiveDefaultList) {
    VAR list;
    select(marks("a^b"), nullptr);
    EXPECT_EQ(VLibFSELECT_IBBB(dp, VLibReturnDefaultFile(dp), &list, nullptr), 1);
    EXPECT_EQ(VRunCountDefaultSel(dp), 0);
    EXPECT_EQ(keys_of(list), (Keys{"a", "b"}));
}

TEST_F(Select, WithoutAnActiveListTheDefaultFileItselfIsSelected) {
    make_file();
    write_keys(2);
    const VAR name(path("F"));
    VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, nullptr, nullptr);
    VAR list;
    EXPECT_EQ(VLibFSELECT_IBBB(dp, VLibReturnDefaultFile(dp), &list, nullptr), 1);
    EXPECT_EQ(sorted(keys_of(list)), (Keys{"K1", "K2"}));
    VLibFCLOSE_IB(dp, nullptr);
}

// --- saved lists ---------------------------------------------------------------------------------------------------

class SavedLists : public Select {
  protected:
    int save(const char *name, VAR *list, VAR *message = nullptr) {
        const VAR wanted(name);
        return velda_save_list(dp, &wanted, list, message);
    }
    std::string get(const char *name) {
        const VAR wanted(name);
        VAR list("before");
        return VLibFREADLIST_IBBB(dp, &list, &wanted, nullptr) == 1 ? shown(list.view()) : "none" + list.str();
    }
};

TEST_F(SavedLists, ANamedListStaysUntilItIsDeleted) {
    VAR list = list_of("a^b");
    EXPECT_EQ(save("MINE", &list), 1);
    EXPECT_EQ(get("MINE"), "a^b");
    EXPECT_EQ(get("MINE"), "a^b");
    EXPECT_EQ(get("OTHER"), "none");
    EXPECT_EQ(dp->last_error, ENOENT);
    const VAR name("MINE");
    EXPECT_EQ(velda_delete_list(dp, &name, nullptr), 1);
    EXPECT_EQ(get("MINE"), "none");
    VAR message;
    EXPECT_EQ(velda_delete_list(dp, &name, &message), 0);
    EXPECT_EQ(shown(message.view()), "LIST_MISSING]MINE]");
}

TEST_F(SavedLists, AnotherContextSeesANamedListButNotTheNamelessOne) {
    VAR list = list_of("a^b");
    save("MINE", &list);
    save("", &list);
    DP *const other = velda_new_context();
    const VAR name("MINE"), nameless("");
    VAR target;
    EXPECT_EQ(VLibFREADLIST_IBBB(other, &target, &name, nullptr), 1);
    EXPECT_EQ(VLibFREADLIST_IBBB(other, &target, &nameless, nullptr), 0);
    velda_free_context(other);
}

TEST_F(SavedLists, SavingTheDefaultListUsesItUp) {
    select(marks("a^b"), nullptr);
    EXPECT_EQ(save("MINE", nullptr), 1);
    EXPECT_EQ(VRunCountDefaultSel(dp), 0);
    EXPECT_EQ(get("MINE"), "a^b");
    VAR message;
    EXPECT_EQ(save("MINE", nullptr, &message), 0);
    EXPECT_EQ(shown(message.view()), "LIST_NONE]]");
    EXPECT_EQ(get("MINE"), "a^b");
}

TEST_F(SavedLists, SavingACallersListLeavesItsKeys) {
    VAR list = list_of("a^b");
    next(&list);
    save("MINE", &list);
    EXPECT_EQ(get("MINE"), "b");
    EXPECT_EQ(keys_of(list), (Keys{"b"}));
}

TEST_F(SavedLists, ReadlistWithoutNameTakesTheActiveListAndThenTheNamelessOne) {
    VAR list = list_of("saved");
    save("", &list);
    select(marks("a^b"), nullptr);
    EXPECT_EQ(get(""), "a^b");
    EXPECT_EQ(VRunCountDefaultSel(dp), 0);
    EXPECT_EQ(get(""), "saved");
    EXPECT_EQ(get(""), "none");
}

TEST_F(SavedLists, AStreamingDefaultListIsHandedOverAsItIs) {
    make_file();
    write_keys(3);
    select(file, nullptr);
    VAR list;
    const VAR nameless("");
    EXPECT_EQ(VLibFREADLIST_IBBB(dp, &list, &nameless, nullptr), 1);
    EXPECT_EQ(sorted(keys_of(list)), (Keys{"K1", "K2", "K3"}));
}

TEST_F(SavedLists, AListThatWasReadCanBeMadeTheDefaultListAgain) {
    select(marks("a^b"), nullptr);
    VAR list;
    VLibFREADLIST_IBBB(dp, &list, nullptr, nullptr);
    EXPECT_EQ(VRunCountDefaultSel(dp), 0);
    select(list, nullptr);
    EXPECT_EQ(VRunCountDefaultSel(dp), 2);
    EXPECT_EQ(next(nullptr), "a");
}

}  // namespace
}  // namespace velda::test
