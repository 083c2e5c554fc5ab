// Open files by name, and the renaming of names.
#include <sys/resource.h>

#include <set>

#include "tests/duplicator/replay_fixture.h"

namespace {

using namespace velda;
using namespace velda::journal;
using namespace velda::test;

class Cache : public ReplayTest {
  protected:
    VediControlBlock *open(const std::string &name) {
        VediControlBlock *file = nullptr;
        run([&] { file = DupOpenCached(dp, name.data(), static_cast<std::uint32_t>(name.size()), nullptr); });
        return file;
    }

    static std::size_t bucket_of(const std::string &name) {
        return VediBaseHashUINT(name.data(), static_cast<std::uint32_t>(name.size()), 4) % CacheBuckets;
    }

    // Files whose names share a bucket with the first.
    std::vector<std::string> files_of_one_bucket(std::size_t count) {
        std::vector<std::string> files;
        for (int number = 0; files.size() < count; ++number) {
            const std::string name = path("F" + std::to_string(number));
            if (!files.empty() && bucket_of(name) != bucket_of(files.front())) continue;
            files.push_back(make_file("F" + std::to_string(number)));
        }
        return files;
    }

    std::set<std::string> cached_names() const {
        std::set<std::string> names;
        for (const auto &bucket : context.fileCache)
            for (const CachedFile &cached : bucket)
                if (cached.file) names.insert(cached.name);
        return names;
    }
};

TEST_F(Cache, ANameIsOpenedOnce) {
    const std::string file = make_file("ORDERS");
    VediControlBlock *const first = open(file);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(open(file), first);
    EXPECT_EQ(cached_names().size(), 1u);
}

TEST_F(Cache, NamesMatchInAnyCase) {
    const std::string file = make_file("orders");
    VediControlBlock *const first = open(file);
    EXPECT_EQ(open(path("ORDERS")), first);
}

TEST_F(Cache, TheThirtyFirstFileOfABucketClosesTheOneUsedLongestAgo) {
    const auto files = files_of_one_bucket(31);
    for (std::size_t i = 0; i < 30; ++i) open(files[i]);
    open(files[0]);  // now the second was used longest ago
    open(files[30]);
    std::set<std::string> expected(files.begin(), files.end());
    expected.erase(files[1]);
    EXPECT_EQ(cached_names(), expected);
}

TEST_F(Cache, ABucketIsKeptInOrderOfLastUse) {
    const auto files = files_of_one_bucket(3);
    for (const std::string &file : files) open(file);
    open(files[1]);
    const auto &bucket = context.fileCache[bucket_of(files[0])];
    EXPECT_EQ(bucket[0].name, files[1]);
    EXPECT_EQ(bucket[1].name, files[2]);
    EXPECT_EQ(bucket[2].name, files[0]);
}

TEST_F(Cache, ClosingANameClosesItInAnyCaseAndNoOther) {
    const std::string file = make_file("orders"), other = make_file("orders2");
    open(file);
    open(other);
    close_cached(dp, context, path("ORDERS"));
    EXPECT_EQ(cached_names(), std::set<std::string>{other});
}

TEST_F(Cache, AFailedOpenLeavesTheEntryFree) {
    EXPECT_EQ(open(path("NOWHERE")), nullptr);
    EXPECT_EQ(reported(), "ERROR:Unable to open file '" + path("NOWHERE") + "' , error value 2");
    EXPECT_TRUE(cached_names().empty());
}

TEST_F(Cache, ExclusiveUseIsMarkedInTheOpenFile) {
    const std::string file = make_file("ORDERS"), other = make_file("OTHER");
    EXPECT_EQ(open(file)->flags & 2048, 0u);
    context.exclusive = 1;
    EXPECT_EQ(open(other)->flags & 2048, 2048u);
}

TEST_F(Cache, AFileThatIsReplacedIsOpenedAnew) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "1", "old"), record_of(DeleteFileType, "", file),
                   create_file_record(file, "HL", "", {}), write_record(file, "2", "new")});
    EXPECT_EQ(read(file, "1"), "(none)");
    EXPECT_EQ(read(file, "2"), "new");
}

TEST_F(Cache, TheProcessMayOpenAsManyFilesAsTheCacheHolds) {
    std::vector<BuiltRecord> records;
    for (int number = 0; number < 40; ++number)
        records.push_back(write_record(make_file("F" + std::to_string(number)), "1", "x"));
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit limit = before;
    const std::filesystem::directory_iterator open_now("/proc/self/fd"), none;
    limit.rlim_cur = static_cast<rlim_t>(std::distance(open_now, none)) + 30;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    apply_quietly(records);
    EXPECT_EQ(cached_names().size(), 40u);
    setrlimit(RLIMIT_NOFILE, &before);
}

// --- renames ---

class Rename : public ReplayTest {
  protected:
    std::string renamed(const std::string &name) const { return renamed_path(out_, name); }
};

TEST_F(Rename, APairAppliesToTheDirectoryItselfAndToWhatIsInIt) {
    out_.renames = {{"C:\\data", "D:\\copy"}};
    EXPECT_EQ(renamed("C:\\data\\f"), "D:\\copy\\f");
    EXPECT_EQ(renamed("C:\\data"), "D:\\copy");
    EXPECT_EQ(renamed("C:\\database\\f"), "C:\\database\\f");
}

TEST_F(Rename, BothKindsOfSeparatorEndADirectorysName) {
    out_.renames = {{"/data", "/copy"}};
    EXPECT_EQ(renamed("/data/f"), "/copy/f");
    EXPECT_EQ(renamed("/data\\f"), "/copy\\f");
    EXPECT_EQ(renamed("/database/f"), "/database/f");
    EXPECT_EQ(renamed("/dat"), "/dat");
}

TEST_F(Rename, NamesMatchInAnyCase) {
    out_.renames = {{"/Data", "/copy"}};
    EXPECT_EQ(renamed("/dATA/f"), "/copy/f");
}

TEST_F(Rename, TheFirstPairThatAppliesWins) {
    out_.renames = {{"/other", "/no"}, {"/data/in", "/first"}, {"/data", "/second"}, {"/second", "/third"}};
    EXPECT_EQ(renamed("/data/in/f"), "/first/f");
    EXPECT_EQ(renamed("/data/f"), "/second/f");
}

TEST_F(Rename, UpdatesGoToTheRenamedFile) {
    std::filesystem::create_directory(path("copy"));
    const std::string file = make_file("copy/ORDERS");
    out_.renames = {{"/origin", path("copy")}};
    apply_quietly({write_record("/origin/ORDERS", "1", "x"), write_record("/origin/ORDERS", "2", "y")});
    EXPECT_EQ(read(file, "1"), "x");
    EXPECT_EQ(read(file, "2"), "y");
}

TEST_F(Rename, EveryPathOfEveryRecordTypeIsRenamed) {
    std::filesystem::create_directory(path("copy"));
    out_.renames = {{"/origin", path("copy")}};
    apply_quietly({create_file_record("/origin/A", "HL", "", {}), write_record("/origin/A", "1", "x"),
                   move_record("/origin/A", "/origin/B"), mkdir_record("/origin/dir"),
                   flat_file_record("/origin/dir/flat", "text"), flat_file_record("/origin/gone", "text"),
                   text_record(RemoveFileType, "/origin/gone"), text_record(ChmodType, "-L", "/origin/B")});
    EXPECT_EQ(read(path("copy/B"), "1"), "x");
    EXPECT_EQ(content(path("copy/dir/flat")), "text");
    EXPECT_FALSE(std::filesystem::exists(path("copy/gone")));
    apply_quietly({record_of(ClearFileType, "", "/origin/B"), record_of(DeleteFileType, "", "/origin/B")});
    EXPECT_FALSE(std::filesystem::exists(path("copy/B")));
}

// --- names that are refused ---

class Refused : public ReplayTest {};

TEST_F(Refused, ANameThatClimbsIsRefusedWhateverTheRecord) {
    std::filesystem::create_directory(path("dir"));
    make_file("ORDERS");
    const std::string bad = path("dir/../ORDERS");
    const std::string refusal = "ERROR:The name '" + bad + "' leads upwards by '..' and is refused";
    for (const BuiltRecord &record :
         {write_record(bad, "1", "x"), delete_record(bad, "1"), record_of(ClearFileType, "", bad),
          record_of(DeleteFileType, "", bad), create_file_record(bad, "HL", "", {}), move_record(bad, path("dir/x")),
          move_record(path("ORDERS"), bad), text_record(RemoveFileType, bad), text_record(ChmodType, "-L", bad),
          mkdir_record(bad), flat_file_record(bad, "x"), text_record(CreateIndexType, "^%s", bad)}) {
        apply(record);
        EXPECT_EQ(reported(), refusal) << record.type;
    }
    EXPECT_EQ(context.slot->outputErrors, 12u);
    EXPECT_EQ(read(path("ORDERS"), "1"), "(none)");
}

TEST_F(Refused, ClimbingBehindARenameIsRefusedToo) {
    std::filesystem::create_directory(path("copy"));
    out_.renames = {{"/origin", path("copy")}};
    apply(flat_file_record("/origin/../escaped", "x"));
    EXPECT_EQ(reported(), "ERROR:The name '" + path("copy") + "/../escaped' leads upwards by '..' and is refused");
    EXPECT_FALSE(std::filesystem::exists(path("escaped")));
}

TEST_F(Refused, APartOfDotsIsFoundBehindEachSeparatorAndSelector) {
    for (const std::string name : {"..", "../x", "a/..", "a\\..\\b", "DICT ../x", "data ..", "/a/b/../c,D"}) {
        apply(write_record(name, "1", "x"));
        EXPECT_NE(said.find("leads upwards by '..' and is refused"), std::string::npos) << name;
    }
}

TEST_F(Refused, DotsInsideANameAreLeftAlone) {
    const std::string file = make_file("a..b");
    const std::string other = make_file("...");
    apply_quietly({write_record(file, "1", "x"), write_record(other, "1", "x")});
    EXPECT_EQ(read(other, "1"), "x");
}

TEST_F(Refused, AZeroByteInAFilesNameIsRefused) {
    const std::string file = make_file("ORDERS");
    apply(write_record(file + std::string("\0/x", 3), "1", "x"));
    EXPECT_EQ(reported(), "ERROR:The name '" + file + "' has a zero byte behind it and is refused");
}

}  // namespace
