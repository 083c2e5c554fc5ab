// Writers killed at random instants: every update whose call returned is there and whole.
//
// Each writer owns some keys and writes ever higher numbers to them. Before an update it notes the number as begun in
// memory shared with the test, after the call as done. A record's content follows from its key and number, so a torn or
// mixed record shows.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "tests/runtime/store/fixture.h"

namespace velda::store::test {
namespace {

constexpr int Writers = 3;
constexpr int KeysOfWriter = 8;

struct Progress {
    std::atomic<std::uint32_t> begun;
    std::atomic<std::uint32_t> done;
};
struct Shared {
    Progress progress[Writers][KeysOfWriter];
};

std::string key_of(int writer, int key) {
    const std::string name = "W" + std::to_string(writer) + "*" + std::to_string(key);
    return key == 0 ? name + std::string(700, 'k') : name;  // a long key among them
}

// Number, then bytes that depend on key and number.
std::string content_of(const std::string &key, std::uint32_t number) {
    std::mt19937 random(static_cast<unsigned>(std::hash<std::string>()(key)) + number);
    std::string content = std::to_string(number) + "|";
    const std::size_t size = random() % 40 == 0 ? 20000 : random() % 600;
    while (content.size() < size) content.push_back(static_cast<char>(random()));
    return content;
}

struct CrashCase {
    std::string name;
    std::string type;
    Durability durability;
    int kills;
};

class Crash : public testing::TestWithParam<CrashCase> {
  protected:
    Crash()
        : shared(static_cast<Shared *>(
              mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~Crash() override { munmap(shared, sizeof(Shared)); }

    // Writes until it is killed.
    [[noreturn]] void write_for_ever(int writer, unsigned seed) {
        std::mt19937 random(seed);
        const TestFile file(scratch / "F");
        for (;;) {
            const int key = static_cast<int>(random() % KeysOfWriter);
            Progress &progress = shared->progress[writer][key];
            const std::uint32_t number = progress.begun + 1;
            progress.begun = number;
            const std::string name = key_of(writer, key);
            const std::string content = content_of(name, number);
            const auto written = random() % 4 == 0
                                     ? file->apply({{name, content}, {"common", name}}, TransferMode::Binary)
                                     : file->write(name, content, TransferMode::Binary);
            if (!written) _exit(3);
            progress.done = number;
        }
    }

    pid_t start(int writer) {
        fflush(nullptr);
        const unsigned seed = random();
        const pid_t child = fork();
        if (child == 0) write_for_ever(writer, seed);
        return child;
    }

    void check_records() {
        const TestFile file(scratch / "F");
        for (int writer = 0; writer < Writers; ++writer)
            for (int key = 0; key < KeysOfWriter; ++key) {
                const Progress &progress = shared->progress[writer][key];
                if (progress.begun == 0) continue;
                const std::string name = key_of(writer, key);
                const std::uint32_t done = progress.done;  // a writer may go on meanwhile
                const std::string record = file.read(name, TransferMode::Binary);
                const std::uint32_t number = record == "(none)" ? 0 : static_cast<std::uint32_t>(std::stoul(record));
                EXPECT_GE(number, done) << name;
                EXPECT_LE(number, progress.begun) << name;
                if (number > 0) {
                    EXPECT_TRUE(record == content_of(name, number)) << name << " is not whole";
                }
            }
    }

    ScratchDirectory scratch;
    Shared *shared;
    const unsigned seed = std::random_device{}();
    std::mt19937 random{seed};
};

TEST_P(Crash, no_returned_update_is_lost_when_writers_are_killed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    ASSERT_OK(create_file(scratch / "F", GetParam().type, {.durability = GetParam().durability, .options = {}}));
    pid_t processes[Writers];
    for (int writer = 0; writer < Writers; ++writer) processes[writer] = start(writer);
    for (int kill_number = 0; kill_number < GetParam().kills; ++kill_number) {
        std::this_thread::sleep_for(std::chrono::microseconds(1000 + random() % 20000));
        const int writer = kill_number % Writers;
        ASSERT_EQ(kill(processes[writer], SIGKILL), 0);
        int status = 0;
        waitpid(processes[writer], &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "a writer failed with code " << WEXITSTATUS(status);
        // What it had begun is either there or not; from now on that counts.
        processes[writer] = start(writer);
        if (kill_number % 10 == 0) check_records();
    }
    for (const pid_t process : processes) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    check_records();
    EXPECT_EQ(findings_of(scratch / "F"), std::vector<std::string>());
    TestFile(scratch / "F").write("last", "r");
    EXPECT_EQ(TestFile(scratch / "F").read("last"), "r");
}

INSTANTIATE_TEST_SUITE_P(All, Crash,
                         testing::Values(CrashCase{"hashed_lazy", "HL", Durability::Lazy, 60},
                                         CrashCase{"hashed_sync", "HL", Durability::Sync, 50},
                                         CrashCase{"directory_lazy", "UD", Durability::Lazy, 30}),
                         [](const auto &chosen) { return chosen.param.name; });

}  // namespace
}  // namespace velda::store::test
