// Commits on a disk that refuses writes, and what a power loss leaves of them.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>

#include "runtime/store/boot_id.h"
#include "runtime/transaction/steps.h"
#include "tests/runtime/transaction/session_fixture.h"

namespace velda::test {

class DiskTest : public TransactionTest {
  protected:
    DiskTest() { put_back(); }
    ~DiskTest() override { transaction::writes_to_refusal = 0; }

    void put_back() {
        VAR b, d;
        two.open_file(path("B"), b);
        two.open_file(path("D"), d);
        two.write("k", "old");
        two.write_to(b, "k", "old");
        two.write_to(d, "k", "old");
        two.write_to(d, "gone", "here");
    }
    // All that the transaction changes, or nothing.
    static constexpr const char *Before = "old old old here";
    static constexpr const char *After = "x x x (none)";
    std::string seen(Session &session) const {
        VAR a, b, d;
        session.open_file(path("A"), a);
        session.open_file(path("B"), b);
        session.open_file(path("D"), d);
        return session.read_from(a, "k") + " " + session.read_from(b, "k") + " " + session.read_from(d, "k") + " " +
               session.read_from(d, "gone");
    }
    void change_all(Session &session) const {
        VAR b, d;
        session.open_file(path("A"), session.file);
        session.open_file(path("B"), b);
        session.open_file(path("D"), d);
        ASSERT_TRUE(session.begin());
        session.write("k", "x");
        session.write_to(b, "k", "x");
        session.write_to(d, "k", "x");
        session.remove_from(d, "gone");
    }
    std::size_t redo_records() const {
        std::error_code failed;
        std::size_t count = 0;
        for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(system_ / "transactions", failed))
            ++count;
        return count;
    }
};

TEST_F(DiskTest, ARefusalOfAnyOneWriteFailsTheCommitWholeOrNotAtAll) {
    int refusals = 0;
    for (int write = 1;; ++write) {
        put_back();
        change_all(one);
        transaction::refused_writes = 1;
        transaction::writes_to_refusal = write;
        const bool done = one.commit();
        const bool was_refused = transaction::writes_to_refusal == 0;
        transaction::writes_to_refusal = 0;
        EXPECT_FALSE(one.active());
        EXPECT_EQ(seen(two), done ? After : Before) << "write " << write << ": " << one.error();
        EXPECT_EQ(redo_records(), 0u) << "write " << write;
        EXPECT_EQ(two.read_locked("k"), 1) << "its locks are released";
        two.release("k");
        if (!was_refused) break;
        ++refusals;
        if (!done) {
            EXPECT_EQ(one.dp()->last_error, ENOSPC);
        }
    }
    EXPECT_GE(refusals, 6);
}

TEST_F(DiskTest, AFullDiskStaysAllOrNothingAndTheUpdatesAreTakenBackOnceThereIsRoom) {
    int unfinished = 0;
    for (int write = 1;; ++write) {
        put_back();
        change_all(one);
        transaction::refused_writes = 1000;
        transaction::writes_to_refusal = write;
        const bool done = one.commit();
        const bool was_refused = transaction::writes_to_refusal == 1;
        if (!done && redo_records() != 0) {
            ++unfinished;
            EXPECT_EQ(two.read_locked("k"), 2) << "the records stay locked until then";
            EXPECT_FALSE(one.begin());
            EXPECT_NE(one.error().find("not yet taken back"), std::string::npos) << one.error();
        }
        transaction::writes_to_refusal = 0;
        one.read("anything");
        EXPECT_EQ(seen(two), done ? After : Before) << "write " << write;
        EXPECT_EQ(redo_records(), 0u) << "write " << write;
        EXPECT_EQ(two.read_locked("k"), 1);
        two.release("k");
        if (!was_refused) break;
    }
    EXPECT_GE(unfinished, 1);
}

TEST_F(DiskTest, WhatASessionThatEndsCouldNotTakeBackIsTakenBackByOthers) {
    {
        Session third;
        change_all(third);
        transaction::refused_writes = 1000;
        transaction::writes_to_refusal = 6;
        EXPECT_FALSE(third.commit());
        EXPECT_EQ(redo_records(), 1u);
    }
    transaction::writes_to_refusal = 0;
    usleep(250'000);
    EXPECT_EQ(seen(two), Before);
    EXPECT_EQ(redo_records(), 0u);
}

TEST_F(DiskTest, ATransactionsDirectoryThatCannotBeWrittenFailsTheCommit) {
    change_all(one);
    std::filesystem::remove_all(system_ / "transactions");
    std::ofstream(system_ / "transactions") << "in the way";
    EXPECT_FALSE(one.commit());
    EXPECT_NE(one.error().find("transactions"), std::string::npos) << one.error();
    EXPECT_EQ(seen(two), Before);
}

// --- power loss ---

class PowerLossTest : public DiskTest {
  protected:
    // Runs `body` in a child of another system, and another boot of the machine if `boot` is not "".
    int in_system(const ScratchDirectory &system, const std::string &boot, const std::function<int()> &body) {
        const pid_t child = fork();
        if (child == 0) {
            setenv("VELDAGLOBALDIR", system.path().c_str(), 1);
            if (!boot.empty()) {
                std::ofstream(system / "boot") << boot << "\n";
                store::set_boot_id_path(system / "boot");
            }
            _exit(body());
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    static constexpr const char *OtherBoot = "01234567-89ab-cdef-0123-456789abcdef";
};

TEST_F(PowerLossTest, ACommittedTransactionOfSyncFilesIsCarriedOutAfterwards) {
    bool was_made = false;
    for (int step = 1;; ++step) {
        put_back();
        const ScratchDirectory system;
        const int outcome = in_system(system, "", [&] {
            Session session;
            change_all(session);
            transaction::steps_to_live = step;
            return session.commit() ? 0 : 1;
        });
        if (outcome == 0) break;
        const int found = in_system(system, OtherBoot, [&] {
            Session session;
            const std::string text = seen(session);
            return text == Before ? 1 : text == After ? 2 : 3;
        });
        ASSERT_TRUE(found == 1 || found == 2) << "step " << step;
        EXPECT_FALSE(was_made && found == 1) << "step " << step;
        if (found == 2) was_made = true;
    }
    EXPECT_TRUE(was_made);
}

TEST_F(PowerLossTest, OneOfLazyFilesIsForgotten) {
    make("L1 DURABILITY=LAZY");
    make("L2 DURABILITY=LAZY");
    for (int step = 1;; ++step) {
        const ScratchDirectory system;
        const int outcome = in_system(system, "", [&] {
            Session session;
            VAR l2;
            session.open_file(path("L1"), session.file);
            session.open_file(path("L2"), l2);
            session.begin();
            session.write("k", "x" + std::to_string(step));
            session.write_to(l2, "k", "x");
            transaction::steps_to_live = step;
            return session.commit() ? 0 : 1;
        });
        if (outcome == 0) break;
        std::filesystem::path record;
        for (const auto &entry : std::filesystem::directory_iterator(system / "transactions")) record = entry.path();
        if (record.extension() != ".redo") continue;
        in_system(system, OtherBoot, [&] {
            Session session;
            return seen(session) == Before ? 0 : 1;
        });
        EXPECT_FALSE(std::filesystem::exists(record)) << "step " << step;
    }
}

// --- records that are damaged ---

TEST_F(PowerLossTest, ARecordThatIsCutOrChangedWasNeverCommitted) {
    // A step at which the record stands and no update is made.
    int standing = 0;
    for (int step = 1; standing == 0; ++step) {
        const ScratchDirectory system;
        ASSERT_NE(in_system(system, "",
                            [&] {
                                Session session;
                                change_all(session);
                                transaction::steps_to_live = step;
                                return session.commit() ? 0 : 1;
                            }),
                  0);
        for (const auto &entry : std::filesystem::directory_iterator(system / "transactions"))
            if (entry.path().extension() == ".redo") standing = step;
    }
    for (int damage = 0; damage < 24; ++damage) {
        put_back();
        const ScratchDirectory system;
        in_system(system, "", [&] {
            Session session;
            change_all(session);
            transaction::steps_to_live = standing;
            return session.commit() ? 0 : 1;
        });
        std::filesystem::path record;
        for (const auto &entry : std::filesystem::directory_iterator(system / "transactions")) record = entry.path();
        ASSERT_EQ(record.extension(), ".redo");
        const auto size = std::filesystem::file_size(record);
        if (damage % 2 == 0) {
            std::filesystem::resize_file(record, size * static_cast<unsigned>(damage) / 24);
        } else {
            std::fstream file(record, std::ios::binary | std::ios::in | std::ios::out);
            file.seekg(static_cast<std::streamoff>(24 + (size - 24) * static_cast<unsigned>(damage) / 24));
            const char byte = static_cast<char>(file.peek() ^ 0x10);
            file.seekp(file.tellg());
            file.put(byte);
        }
        const int found = in_system(system, "", [&] {
            Session session;
            return seen(session) == Before ? 0 : 1;
        });
        EXPECT_EQ(found, 0) << "damage " << damage;
        EXPECT_FALSE(std::filesystem::exists(record));
    }
}

}  // namespace velda::test
