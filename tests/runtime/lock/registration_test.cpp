#include "runtime/lock/registration.h"

#include <sys/resource.h>

#include <filesystem>
#include <fstream>

#include "tests/runtime/lock/table_fixture.h"

using namespace velda;
using namespace velda::test;

class TableRegistration : public testing::Test {
  protected:
    using Attached = Result<std::unique_ptr<lock::LockTable>>;

    void SetUp() override { setenv("VELDALOCKDIR", memory_.path().c_str(), 1); }
    void TearDown() override { unsetenv("VELDALOCKDIR"); }

    Attached attach() { return lock::LockTable::attach(path_); }

    static void write_at(const std::string &path, long offset, const std::string &bytes) {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        ASSERT_TRUE(file);
        file.seekp(offset);
        file << bytes;
    }
    // A child that is an owner of a lock until it is killed.
    pid_t spawn_holder() {
        const pid_t child = fork();
        if (child == 0) {
            auto table = attach();
            auto owner = (*table)->register_owner(getpid(), 1);
            (*table)->take(*owner, record_name("K"));
            raise(SIGSTOP);
            _exit(0);
        }
        waitpid(child, nullptr, WUNTRACED);
        return child;
    }
    static void kill_child(pid_t child) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    static bool can_take(lock::LockTable &table) {
        auto owner = table.register_owner(getpid(), 1);
        const bool taken = table.take(*owner, record_name("K")).result == LockResult::Granted;
        table.retire(*owner);
        return taken;
    }
    std::vector<std::string> segments() const {
        std::vector<std::string> paths;
        for (const auto &entry : std::filesystem::directory_iterator(memory_.path())) paths.push_back(entry.path());
        return paths;
    }
    static int child_status(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return status;
    }

    ScratchDirectory directory_;
    ScratchDirectory memory_;
    std::string path_ = directory_ / "table";
};

TEST_F(TableRegistration, KeepsTheTableWhileAnyProcessUsesIt) {
    const pid_t holder = spawn_holder();
    {
        const auto table = attach();
        ASSERT_TRUE(table) << table.error().message;
        EXPECT_FALSE(can_take(**table));
    }
    const auto table = attach();
    EXPECT_FALSE(can_take(**table));
    kill_child(holder);
}

TEST_F(TableRegistration, LeavesNothingBehindWhenTheLastUserEnds) {
    {
        const auto one = attach();
        { const auto two = attach(); }
        EXPECT_EQ(segments().size(), 1u);
        EXPECT_TRUE(std::filesystem::exists(path_));
    }
    EXPECT_TRUE(segments().empty());
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(TableRegistration, StaysForAForkedChildWhenTheParentLeaves) {
    auto table = attach();
    const pid_t child = fork();
    if (child == 0) {
        raise(SIGSTOP);
        _exit(can_take(**table) && std::filesystem::exists(path_) ? 0 : 1);
    }
    waitpid(child, nullptr, WUNTRACED);
    *table = nullptr;
    EXPECT_EQ(segments().size(), 1u);
    kill(child, SIGCONT);
    EXPECT_EQ(child_status(child), 0);
}

TEST_F(TableRegistration, IsNotRemovedByAForkedChildThatEnds) {
    const auto table = attach();
    const pid_t child = fork();
    if (child == 0) {
        (*table)->leave();
        _exit(0);
    }
    EXPECT_EQ(child_status(child), 0);
    EXPECT_EQ(segments().size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(path_));
}

TEST_F(TableRegistration, OfKilledUsersIsMadeAnew) {
    kill_child(spawn_holder());
    const auto before = segments();
    const auto table = attach();
    ASSERT_TRUE(table);
    EXPECT_TRUE((*table)->all_owners().empty());
    EXPECT_EQ(segments().size(), 1u);
    EXPECT_NE(segments(), before);
}

TEST_F(TableRegistration, FromBeforeARebootIsMadeAnewThoughItsOwnersLookAlive) {
    kill_child(spawn_holder());
    write_at(segments()[0], offsetof(lock::SegmentHeader, boot), std::string(8, '?'));
    // As the machine stopped: the owner's mutex is held by a thread of a process that is no more.
    write_at(segments()[0], lock::OwnersOffset, std::string("\x01\0\0\0", 4));
    const auto table = attach();
    ASSERT_TRUE(table);
    EXPECT_TRUE(can_take(**table));
}

TEST_F(TableRegistration, KeepsATableWhoseOwnerLivesThoughItGaveUpItsDescriptors) {
    const pid_t holder = fork();
    if (holder == 0) {
        auto table = attach();
        auto owner = (*table)->register_owner(getpid(), 1);
        (*table)->take(*owner, record_name("K"));
        for (int file = 3; file < 64; ++file) close(file);
        raise(SIGSTOP);
        _exit(0);
    }
    waitpid(holder, nullptr, WUNTRACED);
    const auto table = attach();
    EXPECT_FALSE(can_take(**table));
    kill_child(holder);
}

TEST_F(TableRegistration, ThatIsDamagedIsWrittenAnew) {
    for (const char *content :
         {"", "\n", "velda-lock-", "velda-lock-0123456789abcdef\n", "no name of a segment at all\n"}) {
        std::ofstream(path_) << content;
        const auto table = attach();
        ASSERT_TRUE(table) << table.error().message;
        EXPECT_TRUE(can_take(**table));
    }
}

TEST_F(TableRegistration, NeverLeadsToTheRemovalOfAnotherFile) {
    const std::string victim = directory_ / "velda-lock-0123456789abcdef";
    for (const std::string &name :
         {std::string("../") + std::filesystem::path(victim).filename().string(), victim,
          "../" + std::filesystem::path(directory_.path()).filename().string() + "/velda-lock-0123456789abcdef"}) {
        std::ofstream(victim) << "precious";
        std::ofstream(path_) << name << "\n";
        ASSERT_TRUE(attach());
        EXPECT_TRUE(std::filesystem::exists(victim)) << name;
    }
}

TEST_F(TableRegistration, ThatIsALinkIsReplacedAndItsTargetLeftAlone) {
    const std::string victim = directory_ / "victim";
    for (const bool symbolic : {true, false}) {
        std::ofstream(victim) << "precious";
        symbolic ? std::filesystem::create_symlink(victim, path_) : std::filesystem::create_hard_link(victim, path_);
        ASSERT_TRUE(attach());
        std::ifstream file(victim);
        std::string content;
        file >> content;
        EXPECT_EQ(content, "precious");
    }
}

TEST_F(TableRegistration, SweepingSparesWhatIsNoSegment) {
    const std::vector<std::string> others = {memory_ / "velda-lock-other", memory_ / "velda-lock-0123456789abcdef",
                                             memory_ / "else"};
    for (const std::string &path : others) std::ofstream(path) << std::string(10000, 'x');
    std::filesystem::last_write_time(others[1], std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    ASSERT_TRUE(attach());
    for (const std::string &path : others) EXPECT_TRUE(std::filesystem::exists(path)) << path;
}

TEST_F(TableRegistration, OfAnotherVersionIsRefusedWhileItIsInUse) {
    const pid_t holder = spawn_holder();
    write_at(segments()[0], offsetof(lock::SegmentHeader, version), std::string("\x63\0\0\0", 4));
    const auto refused = attach();
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().message,
              "lock table '" + segments()[0] + "' is in use by another version: end its sessions first");
    kill_child(holder);
    EXPECT_TRUE(attach());
}

TEST_F(TableRegistration, IsRefusedToWhoCannotSeeTheSegmentThatOthersUse) {
    const pid_t holder = spawn_holder();
    const std::string segment = segments()[0];
    unlink(segment.c_str());
    const auto refused = attach();
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().message, "cannot open lock table '" + segment + "': No such file or directory, though '" +
                                           path_ + "' is in use: all users of a system must see one VELDALOCKDIR");
    kill_child(holder);
}

TEST_F(TableRegistration, HasThePermissionsOfItsDirectory) {
    for (const auto &[directory, file] : {std::pair{0755, 0644}, {0770, 0660}, {0777, 0666}}) {
        ASSERT_EQ(chmod(directory_.path().c_str(), static_cast<mode_t>(directory)), 0);
        const auto table = attach();
        ASSERT_TRUE(table);
        EXPECT_EQ(static_cast<int>(std::filesystem::status(path_).permissions()), file);
        EXPECT_EQ(static_cast<int>(std::filesystem::status(segments()[0]).permissions()), file);
    }
}

TEST_F(TableRegistration, InAMissingDirectoryIsAnErrorThatNamesIt) {
    const auto refused = lock::LockTable::attach(directory_ / "absent/table");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().message,
              "cannot write lock table registration '" + directory_ / "absent/table" + "': No such file or directory");
}

TEST_F(TableRegistration, WithoutRoomInMemoryIsAnErrorThatNamesTheSegment) {
    setenv("VELDALOCKDIR", (memory_ / "absent").c_str(), 1);
    const auto refused = attach();
    ASSERT_FALSE(refused);
    EXPECT_TRUE(refused.error().message.starts_with("cannot make lock table '" + memory_ / "absent/velda-lock-"))
        << refused.error().message;
}

TEST_F(TableRegistration, SegmentsOfRemovedSystemsAreSweptAndOthersStay) {
    ScratchDirectory other;
    const auto lives = lock::LockTable::attach(other / "table");
    kill_child(spawn_holder());
    ASSERT_EQ(segments().size(), 2u);
    std::filesystem::remove(path_);
    ScratchDirectory third;
    const auto table = lock::LockTable::attach(third / "table");
    EXPECT_EQ(segments().size(), 2u);
    EXPECT_TRUE(std::filesystem::exists((*lives)->path()));
}

TEST_F(TableRegistration, ThatCannotGrowRefusesLocksAndKeepsThoseThatItHas) {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        auto table = attach();
        auto owner = (*table)->register_owner(getpid(), 1);
        (*table)->take(*owner, record_name("first"));
        const rlimit limit{std::filesystem::file_size((*table)->path()) + 1000 * 1024, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        int taken = 0;
        lock::Attempt last;
        while (taken < 100000) {
            last = (*table)->take(*owner, record_name("key" + std::to_string(taken)));
            if (last.result != LockResult::Granted) break;
            ++taken;
        }
        const std::string expected = "cannot grow lock table '" + (*table)->path() + "': File too large";
        bool good = last.result == LockResult::Failed && last.error.message == expected && taken > 20;
        for (int i = 0; i < taken; ++i) good &= (*table)->holds(*owner, record_name("key" + std::to_string(i)));
        good &= (*table)->find_fault().empty();
        good &= (*table)->release(*owner, record_name("key0"));
        good &= (*table)->take(*owner, record_name("key0")).result == LockResult::Granted;
        if (!good) fprintf(stderr, "%d taken, then '%s'\n", taken, last.error.message.c_str());
        _exit(good ? 0 : 1);
    }
    EXPECT_EQ(child_status(child), 0);
}

TEST_F(TableRegistration, IsMadeByOneOfManyWhoComeAtOnce) {
    for (int round = 0; round < 20; ++round) {
        std::vector<pid_t> children;
        for (int i = 0; i < 6; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                auto table = attach();
                if (!table) _exit(2);
                auto owner = (*table)->register_owner(getpid(), 1);
                for (int turn = 0; turn < 50; ++turn) (*table)->take(*owner, record_name(std::to_string(turn)));
                const bool good = (*table)->find_fault().empty();
                (*table)->retire(*owner);
                *table = nullptr;
                _exit(good ? 0 : 1);
            }
            children.push_back(child);
        }
        for (const pid_t child : children) EXPECT_EQ(child_status(child), 0);
        EXPECT_TRUE(segments().empty());
    }
}
