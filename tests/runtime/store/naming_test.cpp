// Files made, removed and renamed by several processes while others open and use them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <random>
#include <thread>

#include "runtime/store/environment.h"
#include "tests/runtime/store/fixture.h"

namespace velda::store::test {
namespace {

using namespace std::chrono_literals;

class Naming : public testing::TestWithParam<const char *> {
  protected:
    // Runs `body(number)` in processes at the same time; their exit codes.
    std::vector<int> in_children(int count, const std::function<int(int)> &body) const {
        std::vector<pid_t> children;
        fflush(nullptr);
        for (int number = 0; number < count; ++number) {
            children.push_back(fork());
            if (children.back() != 0) continue;
            const int code = body(number);
            fflush(nullptr);
            _exit(code);
        }
        std::vector<int> codes;
        for (const pid_t child : children) {
            int status = 0;
            waitpid(child, &status, 0);
            codes.push_back(WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status));
        }
        return codes;
    }
    ScratchDirectory scratch;
};

TEST_P(Naming, of_many_that_make_one_file_one_succeeds) {
    for (int round = 0; round < 10; ++round) {
        const std::string path = scratch / ("F" + std::to_string(round));
        const auto codes = in_children(6, [&](int) {
            const auto made = create_file(path, GetParam(), lazy());
            return made ? 1 : made.error().number == EEXIST ? 0 : 2;
        });
        EXPECT_EQ(std::count(codes.begin(), codes.end(), 1), 1);
        EXPECT_EQ(std::count(codes.begin(), codes.end(), 0), 5);
        EXPECT_OK(open_file(path));
    }
}

// Each process makes, opens, writes, reads, moves, copies and removes two files at random. What it wrote into a file it
// has open it must read again; a file that exists at the end must be whole.
TEST_P(Naming, a_storm_of_whole_file_operations_leaves_whole_files) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto storm = [&](int number) {
        std::mt19937 random(seed + static_cast<unsigned>(number));
        const auto end = std::chrono::steady_clock::now() + 1500ms;
        const auto path = [&] { return scratch / (random() % 2 ? "F" : "G"); };
        const std::string key = "K" + std::to_string(number);
        while (std::chrono::steady_clock::now() < end) {
            switch (random() % 8) {
                case 0:
                    (void)create_file(path(), GetParam(), random() % 4 ? lazy() : sync());
                    break;
                case 1:
                    (void)destroy_file(path());
                    break;
                case 2:
                    (void)move_file(scratch / "F", scratch / "G");
                    break;
                case 3:
                    (void)copy_file(scratch / "G", scratch / "F");
                    break;
                default: {
                    const auto opened = open_file(path());
                    if (!opened) {
                        const int why = opened.error().number;
                        if (why != ENOENT && why != EBUSY) {
                            std::fprintf(stderr, "%s\n", error_text(opened.error()).c_str());
                            return 2;
                        }
                        break;
                    }
                    const std::string record = std::to_string(random());
                    const auto written = (*opened)->write(key, record, TransferMode::Default);
                    std::string read;
                    StringBuffer into(read);
                    const auto found = (*opened)->read(key, into, TransferMode::Default);
                    const bool gone = !written || !found || !*found;  // a directory's records go with it
                    if (gone && GetParam() == std::string("HL")) return 3;
                    if (!gone && read != record) return 4;
                }
            }
        }
        return 0;
    };
    EXPECT_EQ(in_children(4, storm), (std::vector<int>{0, 0, 0, 0}));
    for (const auto *name : {"F", "G"}) {
        if (!std::filesystem::exists(scratch / name)) continue;
        EXPECT_EQ(findings_of(scratch / name), std::vector<std::string>());
        TestFile(scratch / name).write("last", "r");
    }
}

TEST_P(Naming, a_file_that_another_process_uses_may_be_moved) {
    TestFile::create(scratch / "F", GetParam(), lazy());
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const TestFile file(scratch / "F");
        for (int i = 0; i < 400; ++i) {
            file.write("child" + std::to_string(i), "r");
            if (i == 50) (void)!write(ends[1], "x", 1);
        }
        _exit(testing::Test::HasFailure());
    }
    char byte;
    ASSERT_EQ(read(ends[0], &byte, 1), 1);
    ASSERT_OK(move_file(scratch / "F", scratch / "G"));
    {
        const TestFile file(scratch / "G");
        for (int i = 0; i < 400; ++i) file.write("parent" + std::to_string(i), "r");
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(TestFile(scratch / "G").count(), 800U);
    EXPECT_TRUE(findings_of(scratch / "G").empty());
}

TEST_P(Naming, special_mode_bits_are_set) {
    FileSettings settings = lazy();
    settings.permissions = 02770;
    const TestFile file = TestFile::create(scratch / "F", GetParam(), settings);
    struct stat status;
    ASSERT_EQ(stat((scratch / "F").c_str(), &status), 0);
    // The kernel takes set-group-ID from a plain file that an ordinary user writes to.
    const bool is_kept = geteuid() == 0 || GetParam() == std::string("UD");
    EXPECT_EQ(status.st_mode & 07770, (is_kept ? 02750U : 0750U) | (status.st_mode & 020));
    EXPECT_EQ(file->settings()->permissions, 02770);
}

INSTANTIATE_TEST_SUITE_P(All, Naming, testing::Values("HL", "UD"),
                         [](const auto &chosen) { return std::string(chosen.param); });

// --- readers ---

struct FewReaders {
    explicit FewReaders(unsigned readers) { set_max_readers(readers); }
    ~FewReaders() { set_max_readers(2048); }
};

class Readers : public testing::Test {
  protected:
    // A process that reads, and then waits to be killed or dies at once.
    pid_t reader(bool dies) const {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            const TestFile file(scratch / "F");
            file.read("K");
            (void)!write(ends[1], "x", 1);
            if (dies) raise(SIGKILL);
            pause();
        }
        char byte;
        EXPECT_EQ(::read(ends[0], &byte, 1), 1);
        if (dies) waitpid(child, nullptr, 0);
        return child;
    }
    void end(pid_t child) const {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    const FewReaders few{2};
    ScratchDirectory scratch;
};

TEST_F(Readers, places_of_killed_readers_are_found_when_none_is_free) {
    const TestFile file = TestFile::create(scratch / "F", "HL", lazy());
    file.write("K", "r");
    const pid_t living = reader(false);
    reader(true);
    EXPECT_EQ(file.read("K"), "r");
    end(living);
}

TEST_F(Readers, too_many_are_told_so) {
    const TestFile file = TestFile::create(scratch / "F", "HL", lazy());
    file.write("K", "r");
    const pid_t first = reader(false), second = reader(false);
    std::string record;
    StringBuffer into(record);
    const auto read = file->read("K", into, TransferMode::Default);
    ASSERT_FALSE(read.ok());
    EXPECT_EQ(read.error().number, EAGAIN);
    EXPECT_EQ(read.error().message.find("cannot read from file '" + scratch / "F" + "': MDB_READERS_FULL"), 0U)
        << read.error().message;
    end(first);
    EXPECT_EQ(file.read("K"), "r");
    end(second);
}

}  // namespace
}  // namespace velda::store::test
