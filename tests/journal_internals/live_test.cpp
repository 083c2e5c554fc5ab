// A selection that follows real writers through switches of the set.
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <filesystem>

#include "tests/journal_internals/reading_fixture.h"

using namespace velda::test;
using namespace velda::journal;

namespace {

class Live : public LoggerTest {
  protected:
    Live() : before_(std::filesystem::current_path()) {
        defined();
        std::filesystem::current_path(system_.path());
        for (int set = 1; set <= 4; ++set)
            for (int file = 1; file <= 2; ++file)
                EXPECT_EQ(set_file(set, file, system_ / ("s" + std::to_string(set) + std::to_string(file))), 0);
        EXPECT_EQ(swap(1), 0);
        EXPECT_EQ(admin([&] { return VELDALoggerChangeStatus(dp, 1); }), 0);
    }
    ~Live() override { std::filesystem::current_path(before_); }

    // Runs a body in a process of its own.
    static pid_t in_child(const std::function<bool()> &body) {
        const pid_t child = fork();
        if (child == 0) _exit(body() ? 0 : 1);
        return child;
    }
    static void expect_success(pid_t child) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }

  private:
    std::filesystem::path before_;
};

// "wN M" is update M of writer N.
bool write_updates(int writer, int updates) {
    velda::File file;
    if (!file.open("UPDATES")) return false;
    for (int n = 0; n < updates; ++n)
        file.write("w" + std::to_string(writer) + " " + std::to_string(n), std::string(300, 'u'));
    return true;
}

void wait_a_little(DP *, int code, ...) {
    if (code == 3) usleep(1000);
}

TEST_F(Live, EveryUpdateIsReadOnceAndInOrderThroughSwitches) {
    constexpr int Writers = 2, Updates = 4000, Switches = 1000;
    const auto failure = velda::create_file(velda::convert("UPDATES DURABILITY=LAZY", " ", velda::AM));
    ASSERT_FALSE(failure) << failure->str();
    std::vector<pid_t> children;
    for (int writer = 0; writer < Writers; ++writer)
        children.push_back(in_child([&] { return write_updates(writer, Updates); }));
    // The reader is always less than a round of all sets behind: the switches wait for it.
    int seen_sets[2];
    ASSERT_EQ(pipe(seen_sets), 0);
    const pid_t switcher = in_child([&] {
        char seen;
        for (int n = 0; n < Switches; ++n) {
            usleep(20'000);
            if (swap(n % 4 == 3 ? 1 : n % 4 + 2) != 0) return false;
            if (::read(seen_sets[0], &seen, 1) != 1) return false;
        }
        return true;
    });

    LogSelect *select = VELDALoggerSelectStart(dp, "set=1 terminate=wait retry=1", 0, nullptr);
    ASSERT_NE(select, nullptr);
    select->retry = 0;
    int next[Writers] = {}, switches_seen = 0;
    std::int64_t set_time = select->setFirstTime;
    for (int found = 0; found < Writers * Updates;) {
        const unsigned char *const record = VELDALoggerReadnext(dp, select, wait_a_little);
        ASSERT_NE(record, nullptr) << errno - 2048;
        if (select->setFirstTime != set_time) {
            ++switches_seen;
            set_time = select->setFirstTime;
            ASSERT_EQ(::write(seen_sets[1], "s", 1), 1);
        }
        const LogParts parts(record);
        if (parts.header.type != WriteType && parts.header.type != DeleteType) continue;
        const std::string key(parts.texts[1]);
        const int writer = key[1] - '0';
        if (parts.header.type == DeleteType) {  // taken back, as its file had to grow first: it is told again
            --next[writer];
            --found;
            ASSERT_EQ(key, "w" + std::to_string(writer) + " " + std::to_string(next[writer]));
            continue;
        }
        ASSERT_EQ(key, "w" + std::to_string(writer) + " " + std::to_string(next[writer])) << "lost or out of order";
        ++next[writer];
        ++found;
    }
    EXPECT_GT(switches_seen, 0);
    kill(switcher, SIGKILL);
    waitpid(switcher, nullptr, 0);
    for (const pid_t child : children) expect_success(child);
    VELDALoggerSelectEnd(dp, &select);
}

}  // namespace
