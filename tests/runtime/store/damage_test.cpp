// Damaged files, files without permission, full disks: a clear error, and nothing lost.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <random>

#include "runtime/store/lmdb_format.h"
#include "tests/runtime/store/fixture.h"
#include "tests/support/mounted_disk.h"

namespace velda::store::test {
namespace {

constexpr std::size_t PageBytes = lmdb::PageBytes;

class Damage : public testing::Test {
  protected:
    // A file with some pages of every kind, closed.
    void make_file(const FileSettings &settings = sync()) {
        ASSERT_OK(create_file(path, "HL", settings));
        const TestFile file(path);
        std::vector<std::string> keys;
        std::vector<Update> updates;
        for (int i = 0; i < 2000; ++i) keys.push_back("K" + std::to_string(i));
        const std::string record(100, 'r');
        for (const auto &key : keys) updates.push_back({key, record});
        ASSERT_OK(file->apply(updates, TransferMode::Default));
        file.write("big", std::string(50000, 'b'));
        file.write(std::string(700, 'k'), "long");
        updates.clear();
        for (int i = 0; i < 100; ++i) updates.push_back({keys[i * 7], std::nullopt});
        ASSERT_OK(file->apply(updates, TransferMode::Default));
        ASSERT_OK(file->control_write(1, "one"));
    }
    std::size_t pages() const { return std::filesystem::file_size(path) / PageBytes; }
    void overwrite(std::size_t offset, const std::string &bytes) const {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(offset));
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    std::string bytes() const {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void expect_open_fails(int number, const std::string &reason) const {
        const auto opened = open_file(path);
        ASSERT_FALSE(opened.ok());
        EXPECT_EQ(opened.error().number, number);
        EXPECT_EQ(opened.error().message, reason);
    }
    std::string damaged(const std::string &what) const {
        return "file '" + path + "' is damaged: " + what + "; restore it, or see CHECK-FILE";
    }
    ScratchDirectory scratch;
    const std::string path = scratch / "F";
};

TEST_F(Damage, a_file_of_another_kind_is_no_database_file) {
    for (const std::string &content : {std::string(), std::string("a text\n"), std::string(100000, 'x')}) {
        std::ofstream(path, std::ios::trunc) << content;
        expect_open_fails(EINVAL, "'" + path + "' is not a database file");
    }
}

TEST_F(Damage, a_file_of_zeros_is_no_database_file) {
    make_file();
    overwrite(0, std::string(std::filesystem::file_size(path), '\0'));
    expect_open_fails(EINVAL, "'" + path + "' is not a database file");
}

TEST_F(Damage, a_pipe_is_no_database_file) {
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    expect_open_fails(EINVAL, "'" + path + "' is not a database file");
}

TEST_F(Damage, a_zeroed_first_page_half_is_reported) {
    make_file();
    overwrite(0, std::string(512, '\0'));
    expect_open_fails(NeedsCheck, damaged("page 0 is not a meta page"));
}

TEST_F(Damage, a_missing_label_is_reported) {
    make_file();
    overwrite(1024, std::string(32, '\0'));
    expect_open_fails(NeedsCheck, damaged("its label is missing"));
}

TEST_F(Damage, a_zeroed_second_page_is_reported) {
    make_file();
    overwrite(PageBytes, std::string(PageBytes, '\0'));
    expect_open_fails(NeedsCheck, damaged("page 1 is not a meta page"));
}

TEST_F(Damage, a_wrong_version_and_page_size_are_reported) {
    make_file();
    const std::string whole = bytes();
    overwrite(16 + 4, std::string("\x09\0\0\0", 4));
    expect_open_fails(NeedsCheck, damaged("page 0 has format version 9"));
    overwrite(0, whole);
    overwrite(16 + 24, std::string("\0\x20\0\0", 4));
    expect_open_fails(NeedsCheck, damaged("page 0 has page size 8192"));
}

TEST_F(Damage, a_root_behind_the_end_is_reported) {
    make_file();
    for (const std::size_t page : {0, 1})
        overwrite(page * PageBytes + 16 + 72 + 40, std::string("\0\0\0\x7F\0\0\0\0", 8));
    expect_open_fails(NeedsCheck, damaged("page 0 has a root of the main tree that lies outside the file"));
}

TEST_F(Damage, a_file_cut_off_at_any_page_opens_with_an_error_or_not_at_all) {
    make_file();
    const std::string whole = bytes();
    for (std::size_t left = 0; left < whole.size(); left += PageBytes / 2) {
        std::ofstream(path, std::ios::trunc | std::ios::binary) << whole.substr(0, left);
        EXPECT_EQ(in_child([&] {
                      const auto opened = open_file(path);
                      if (!opened) return opened.error().message.empty() ? 2 : 0;
                      // Only pages that are free may be missing: everything is still there.
                      return TestFile(path).items().size() == 1902 ? 0 : 3;
                  }),
                  0)
            << left;
    }
}

TEST_F(Damage, a_zeroed_page_never_kills_and_check_finds_it) {
    make_file();
    const std::string whole = bytes();
    const std::size_t count = pages();
    int found = 0;
    for (std::size_t page = 2; page < count; ++page) {
        overwrite(0, whole);
        overwrite(page * PageBytes, std::string(PageBytes, '\0'));
        EXPECT_EQ(in_child([&] {
                      if (const auto opened = open_file(path)) {
                          auto cursor = (*opened)->select(TransferMode::Default);
                          for (;;) {
                              const auto item = (*cursor)->next_item();
                              if (!item || !*item) break;
                          }
                      }
                      return 0;
                  }),
                  0)
            << page;
        if (!findings_of(path).empty()) ++found;
    }
    EXPECT_GT(found, 60);  // all but the free ones
}

TEST_F(Damage, check_names_the_page) {
    make_file();
    const std::string whole = bytes();
    std::vector<std::string> findings;
    std::size_t leaf = 1;
    while (findings.empty()) {  // older states of the leaf lie in pages that are free
        ASSERT_LT(++leaf, pages());
        const bool holds_key = whole.find("K1999", leaf * PageBytes) < (leaf + 1) * PageBytes;
        if (whole[leaf * PageBytes + 10] != lmdb::Leaf || !holds_key) continue;
        overwrite(0, whole);
        overwrite(leaf * PageBytes, std::string(8, '\x11'));
        findings = findings_of(path);
    }
    EXPECT_EQ(findings[0], "page " + std::to_string(leaf) + " (records): says that it is page 1229782938247303441");
}

TEST_F(Damage, random_damage_never_kills_a_check) {
    make_file();
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string whole = bytes();
    for (int round = 0; round < 100; ++round) {
        overwrite(0, whole);
        for (int i = 0; i < 20; ++i) {
            const std::size_t at = round % 2 ? random() % whole.size() : random() % pages() * PageBytes + random() % 64;
            if (at + 4 < whole.size()) overwrite(at, std::string(1 + random() % 4, static_cast<char>(random())));
        }
        for (const auto &finding : findings_of(path)) EXPECT_EQ(finding.find("was ended by"), finding.npos) << finding;
    }
}

TEST_F(Damage, a_damaged_file_can_be_removed) {
    make_file();
    overwrite(PageBytes, std::string(PageBytes, '\0'));
    EXPECT_OK(destroy_file(path));
    EXPECT_EQ(open_file(path).error().number, ENOENT);
}

TEST_F(Damage, a_damaged_control_file_of_a_directory_is_reported) {
    ASSERT_OK(create_file(path, "UD", sync()));
    std::ofstream(path + "/.velda-control") << "garbage";
    expect_open_fails(NeedsCheck, "control file '" + path + "/.velda-control' is damaged; restore it");
}

TEST_F(Damage, absence_names_the_file) {
    expect_open_fails(ENOENT, "cannot open file '" + path + "': No such file or directory");
    const std::string below = scratch / "none/F";
    EXPECT_EQ(create_file(below, "HL", sync()).error().message,
              "cannot find '" + below + "': No such file or directory");
    EXPECT_EQ(create_file(path, "XX", sync()).error().message, "there is no file type 'XX'");
}

// --- permissions ---

class Permissions : public testing::TestWithParam<const char *> {
  protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "takes root, to become another user";
        chmod(scratch.path().c_str(), 0755);
    }
    // Runs as a user who owns nothing.
    int as_nobody(const std::function<int()> &body) const {
        return in_child([&] {
            if (setgid(65534) || setuid(65534)) return 99;
            return body();
        });
    }
    ScratchDirectory scratch;
    const std::string path = scratch / "F";
};

TEST_P(Permissions, a_file_that_may_only_be_read_is_read) {
    FileSettings settings = sync();
    settings.permissions = 0644;
    TestFile::create(path, GetParam(), settings).write("K", "r");
    EXPECT_EQ(as_nobody([&] {
                  const TestFile file(path);
                  if (file.read("K") != "r" || file.keys().size() != 1 || file->writable()) return 1;
                  const auto written = file->write("K", "x", TransferMode::Default);
                  if (written || written.error().number != EACCES) return 2;
                  const auto removed = file->remove("K");
                  if (removed || removed.error().number != EACCES) return 3;
                  return file->status()->flags == std::vector<std::string>{"read-only"} ? 0 : 4;
              }),
              0);
    EXPECT_EQ(TestFile(path).read("K"), "r");
}

TEST_P(Permissions, a_file_is_read_where_no_lock_file_can_be_made) {
    FileSettings settings = GetParam() == std::string("HL") ? lazy() : sync();
    settings.permissions = 0666;
    umask(0);
    TestFile::create(path, GetParam(), settings).write("K", "r");
    umask(022);
    std::filesystem::remove(path + "-lock");
    if (GetParam() == std::string("UD")) chmod(path.c_str(), 0755);
    EXPECT_EQ(as_nobody([&] {
                  const TestFile file(path);
                  if (file.read("K") != "r" || file->writable()) return 1;
                  return file->write("K", "x", TransferMode::Default).error().number == EACCES ? 0 : 2;
              }),
              0);
}

TEST_P(Permissions, a_file_that_may_not_be_read_is_not_opened) {
    FileSettings settings = sync();
    settings.permissions = 0600;
    TestFile::create(path, GetParam(), settings).write("K", "r");
    EXPECT_EQ(as_nobody([&] {
                  const auto opened = open_file(path);
                  return !opened && opened.error().number == EACCES &&
                                 opened.error().message == "cannot open file '" + path + "': Permission denied"
                             ? 0
                             : 1;
              }),
              0);
}

TEST_P(Permissions, a_file_is_not_made_where_one_may_not_write) {
    EXPECT_EQ(as_nobody([&] {
                  const auto made = create_file(path, GetParam(), sync());
                  return !made && made.error().message == "cannot make file '" + path + "': Permission denied" ? 0 : 1;
              }),
              0);
}

TEST_P(Permissions, a_file_open_to_all_is_shared_by_users) {
    umask(0);
    FileSettings settings = lazy();
    settings.permissions = 0666;
    const TestFile file = TestFile::create(path, GetParam(), settings);
    if (file->type() == "UD") chmod(path.c_str(), 0777);
    file.write("K", "r");
    EXPECT_EQ(as_nobody([&] {
                  const TestFile its(path);
                  its.write("K", "theirs");
                  return its.read("K") == "theirs" ? 0 : 1;
              }),
              0);
    EXPECT_EQ(file.read("K"), "theirs");
    umask(022);
}

INSTANTIATE_TEST_SUITE_P(All, Permissions, testing::Values("HL", "UD"),
                         [](const auto &chosen) { return std::string(chosen.param); });

// --- full disks ---

struct FullCase {
    std::string name;
    std::string type;
    Durability durability;
};

class FullDisk : public testing::TestWithParam<FullCase> {
  protected:
    // Writes until it fails: the error must be `expected`, all that was written must be there, and writing must work
    // again after `relieve`.
    int fill_and_recover(const std::string &path, int expected, const std::function<void()> &relieve) {
        const TestFile file =
            TestFile::create(path, GetParam().type, {.durability = GetParam().durability, .options = {}});
        const std::string record(20000, 'r');
        int written = 0;
        for (;; ++written) {
            const auto result = file->write("K" + std::to_string(written), record, TransferMode::Binary);
            if (result) continue;
            if (result.error().number != expected || result.error().message.find(path) == std::string::npos) {
                std::fprintf(stderr, "%s\n", error_text(result.error()).c_str());
                return 1;
            }
            break;
        }
        for (int i = 0; i < written; ++i)
            if (file.read("K" + std::to_string(i), TransferMode::Binary) != record) return 2;
        if (file.read("K" + std::to_string(written)) != "(none)") return 3;
        relieve();
        for (int i = 0; i < 10; ++i) file.write("L" + std::to_string(i), record, TransferMode::Binary);
        if (file.count() != static_cast<unsigned>(written) + 10 || !findings_of(path).empty()) return 4;
        return testing::Test::HasFailure() ? 5 : 0;
    }
};

TEST_P(FullDisk, a_size_limit_is_an_error_of_the_write) {
    ScratchDirectory scratch;
    EXPECT_EQ(in_child([&] {
                  rlimit limit{GetParam().type == "UD" ? 10000U : 2U << 20, RLIM_INFINITY};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  return fill_and_recover(scratch / "F", EFBIG, [] {
                      rlimit none{RLIM_INFINITY, RLIM_INFINITY};
                      setrlimit(RLIMIT_FSIZE, &none);
                  });
              }),
              0);
}

TEST_P(FullDisk, a_full_disk_is_an_error_of_the_write) {
    ScratchDirectory scratch;
    const velda::test::MountedDisk mounted(scratch.path(), "4m");
    if (!mounted) GTEST_SKIP() << "cannot mount a small disk";
    EXPECT_EQ(in_child([&] {
                  std::ofstream(scratch / "ballast") << std::string(2 << 20, 'b');
                  return fill_and_recover(scratch / "F", ENOSPC, [&] { std::filesystem::remove(scratch / "ballast"); });
              }),
              0);
}

INSTANTIATE_TEST_SUITE_P(All, FullDisk,
                         testing::Values(FullCase{"hashed_sync", "HL", Durability::Sync},
                                         FullCase{"hashed_lazy", "HL", Durability::Lazy},
                                         FullCase{"directory", "UD", Durability::Sync}),
                         [](const auto &chosen) { return chosen.param.name; });

}  // namespace
}  // namespace velda::store::test
