// The hashed driver: long keys, growth, damage, lazy files, several processes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <lmdb.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <thread>

#include "runtime/store/boot_id.h"
#include "runtime/store/environment.h"
#include "runtime/store/hash.h"
#include "tests/runtime/store/fixture.h"

namespace velda::store::test {
namespace {

using namespace std::chrono_literals;

class Hashed : public testing::Test {
  protected:
    ScratchDirectory scratch;
};

// --- long keys ---

// Every long key gets the same hash while it lives.
struct WeakHash {
    WeakHash() {
        long_key_hash = [](std::string_view) -> std::uint64_t { return 7; };
    }
    ~WeakHash() { long_key_hash = strong_key_hash; }
};

class LongKeys : public testing::TestWithParam<const char *> {
  protected:
    const WeakHash weak;
    ScratchDirectory scratch;
};

std::string long_key(int number) { return std::string(600, 'k') + std::to_string(number); }

TEST_P(LongKeys, keys_of_equal_hash_are_told_apart) {
    const TestFile file = TestFile::create(scratch / "F", GetParam(), lazy());
    for (int i = 0; i < 30; ++i) file.write(long_key(i), std::to_string(i));
    for (int i = 0; i < 30; ++i) EXPECT_EQ(file.read(long_key(i)), std::to_string(i));
    EXPECT_EQ(file.read(long_key(99)), "(none)");
    EXPECT_EQ(file.keys().size(), 30U);
    EXPECT_TRUE(findings_of(scratch / "F").empty());
}

TEST_P(LongKeys, a_gap_among_keys_of_equal_hash_hides_none_and_is_filled) {
    const TestFile file = TestFile::create(scratch / "F", GetParam(), lazy());
    for (int i = 0; i < 10; ++i) file.write(long_key(i), std::to_string(i));
    for (const int i : {0, 4, 5, 9}) EXPECT_TRUE(file.remove(long_key(i)));
    for (const int i : {1, 2, 3, 6, 7, 8}) EXPECT_EQ(file.read(long_key(i)), std::to_string(i));
    for (const int i : {0, 4, 5, 9}) EXPECT_FALSE(file.remove(long_key(i)));
    for (const int i : {20, 21}) file.write(long_key(i), std::to_string(i));
    file.write(long_key(8), "again");
    EXPECT_EQ(file.read(long_key(8)), "again");
    EXPECT_EQ(file.items().size(), 8U);
    for (const int i : {1, 2, 3, 6, 7, 8, 20, 21}) EXPECT_TRUE(file.remove(long_key(i)));
    EXPECT_TRUE(file.keys().empty());
}

TEST_P(LongKeys, random_operations_on_keys_of_equal_hash_agree_with_a_map) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const TestFile file = TestFile::create(scratch / "F", GetParam(), lazy());
    std::map<std::string, std::string> model;
    for (int step = 0; step < 600; ++step) {
        const std::string key = long_key(static_cast<int>(random() % 12));
        if (random() % 2) {
            model[key] = std::to_string(step);
            file.write(key, model[key]);
        } else {
            EXPECT_EQ(file.remove(key), model.erase(key) == 1);
        }
        if (step % 100 == 0) {
            EXPECT_EQ(file.items(), model);
        }
    }
    EXPECT_EQ(file.items(), model);
}

INSTANTIATE_TEST_SUITE_P(All, LongKeys, testing::Values("HL", "UD"),
                         [](const auto &chosen) { return std::string(chosen.param); });

TEST_F(Hashed, a_select_of_many_long_keys_goes_on_where_it_was) {
    const TestFile file = TestFile::create(scratch / "F", "HL", lazy());
    std::vector<std::string> keys;
    std::vector<Update> updates;
    for (int i = 0; i < 1000; ++i) keys.push_back(long_key(i));
    for (const auto &key : keys) updates.push_back({key, "r"});
    ASSERT_OK(file->apply(updates, TransferMode::Default));
    EXPECT_EQ(file.keys().size(), 1000U);
    EXPECT_EQ(file.items().size(), 1000U);
}

TEST_F(Hashed, the_hash_of_long_keys_never_changes) { EXPECT_EQ(strong_key_hash("velda"), 0x05557F2530751005ULL); }

// --- sizes ---

TEST_F(Hashed, a_record_of_64_MiB_works) {
    for (const auto &settings : {sync(), lazy()}) {
        const std::string path = scratch / (settings.durability == Durability::Lazy ? "L" : "S");
        const TestFile file = TestFile::create(path, "HL", settings);
        std::string record(64 << 20, 'r');
        record.back() = '!';
        file.write("K", record);
        EXPECT_TRUE(file.read("K") == record);
        EXPECT_EQ(file.items().begin()->second.size(), record.size());
    }
}

TEST_F(Hashed, a_record_larger_than_1_GiB_is_refused) {
    const TestFile file = TestFile::create(scratch / "F");
    const std::size_t size = MaxRecordBytes + 1;
    void *zeros = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(zeros, MAP_FAILED);
    const auto written = file->write("K", {static_cast<char *>(zeros), size}, TransferMode::Default);
    munmap(zeros, size);
    ASSERT_FALSE(written.ok());
    EXPECT_EQ(written.error().number, EFBIG);
    EXPECT_EQ(written.error().message,
              "file '" + scratch / "F" + "': a record of 1073741825 bytes is larger than 1073741824");
}

// --- growth ---

struct SmallMaps {
    SmallMaps() { set_first_map_bytes(64 * 1024, 64 * 1024); }
    ~SmallMaps() { set_first_map_bytes(1 << 30, 256 * 1024); }
};

class Growth : public testing::TestWithParam<Durability> {
  protected:
    FileSettings settings() const { return {.durability = GetParam(), .options = {}}; }
    void fill(const TestFile &file, int first, int count) const {
        std::vector<std::string> keys;
        std::vector<Update> updates;
        const std::string record(1000, 'r');
        for (int i = first; i < first + count; ++i) keys.push_back("K" + std::to_string(i));
        for (const auto &key : keys) updates.push_back({key, record});
        EXPECT_OK(file->apply(updates, TransferMode::Default));
    }
    const SmallMaps small;
    ScratchDirectory scratch;
};

TEST_P(Growth, the_map_grows_on_demand) {
    const TestFile file = TestFile::create(scratch / "F", "HL", settings());
    for (int i = 0; i < 10; ++i) fill(file, i * 1000, 1000);
    file.write("big", std::string(30 << 20, 'b'));
    EXPECT_EQ(file.count(), 10001U);
    EXPECT_EQ(file.read("K9999").size(), 1000U);
    EXPECT_EQ(file.read("big").size(), 30U << 20);
    EXPECT_TRUE(findings_of(scratch / "F").empty());
}

TEST_P(Growth, a_map_that_another_process_grew_is_followed) {
    const TestFile file = TestFile::create(scratch / "F", "HL", settings());
    fill(file, 0, 1);
    auto cursor = file->select(TransferMode::Default);
    EXPECT_EQ(in_child([&] {
                  fill(TestFile(scratch / "F"), 1, 5000);
                  return testing::Test::HasFailure();
              }),
              0);
    EXPECT_EQ(file.read("K4000").size(), 1000U);
    fill(file, 5001, 5000);
    EXPECT_EQ(in_child([&] {
                  const TestFile again(scratch / "F");
                  return again.read("K10000").size() == 1000 && again.count() == 10001 ? 0 : 1;
              }),
              0);
    int seen = 0;
    while (*(*cursor)->next_key()) ++seen;
    EXPECT_EQ(seen, 10001);
}

TEST_P(Growth, threads_read_and_select_while_one_grows_the_file) {
    const TestFile file = TestFile::create(scratch / "F", "HL", settings());
    fill(file, 0, 100);
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; !done; ++round) {
                EXPECT_EQ(file.read("K" + std::to_string(round % 100)).size(), 1000U);
                if (t != 0) continue;
                auto cursor = file->select(TransferMode::Default);
                for (int i = 0; i < 50; ++i) {
                    auto item = (*cursor)->next_item();
                    EXPECT_EQ((*item)->record, std::string(1000, 'r'));
                }
            }
        });
    threads.emplace_back([&] {
        for (int i = 0; i < 30; ++i) file.write("other" + std::to_string(i), "r");
    });
    for (int i = 0; i < 10; ++i) fill(file, 1000 + i * 500, 500);
    done = true;
    for (auto &thread : threads) thread.join();
    EXPECT_EQ(file.count(), 5130U);
}

TEST_P(Growth, processes_that_all_write_grow_the_file_together) {
    TestFile::create(scratch / "F", "HL", settings());
    std::vector<pid_t> children;
    for (int c = 0; c < 4; ++c) {
        fflush(nullptr);
        children.push_back(fork());
        if (children.back() != 0) continue;
        const TestFile file(scratch / "F");
        for (int i = 0; i < 8; ++i) fill(file, c * 100000 + i * 250, 250);
        _exit(testing::Test::HasFailure());
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    const TestFile file(scratch / "F");
    EXPECT_EQ(file.count(), 8000U);
    EXPECT_TRUE(findings_of(scratch / "F").empty());
}

INSTANTIATE_TEST_SUITE_P(All, Growth, testing::Values(Durability::Sync, Durability::Lazy),
                         [](const auto &chosen) { return chosen.param == Durability::Sync ? "sync" : "lazy"; });

// Another process that has a file open until leave().
class OtherUser {
  public:
    explicit OtherUser(const std::string &path) {
        EXPECT_EQ(pipe(opened_) + pipe(leave_), 0);
        fflush(nullptr);
        process_ = fork();
        char byte = 0;
        if (process_ == 0) {
            close(leave_[1]);
            const TestFile file(path);
            file.read("K");
            (void)!write(opened_[1], "x", 1);
            (void)!read(leave_[0], &byte, 1);
            _exit(0);
        }
        EXPECT_EQ(read(opened_[0], &byte, 1), 1);
    }
    ~OtherUser() { leave(); }
    OtherUser(const OtherUser &) = delete;
    OtherUser &operator=(const OtherUser &) = delete;
    void leave() {
        if (process_ > 0) {
            for (const int end : {opened_[0], opened_[1], leave_[0], leave_[1]}) close(end);
            waitpid(process_, nullptr, 0);
        }
        process_ = 0;
    }

  private:
    int opened_[2], leave_[2];
    pid_t process_ = 0;
};

// --- processes ---

TEST_F(Hashed, a_forked_child_opens_the_file_for_itself) {
    for (const auto &settings : {sync(), lazy()}) {
        const std::string path = scratch / (settings.durability == Durability::Lazy ? "L" : "S");
        const TestFile file = TestFile::create(path, "HL", settings);
        file.write("K", "parent");
        EXPECT_EQ(file.read("K"), "parent");
        auto cursor = file->select(TransferMode::Default);
        EXPECT_EQ(in_child([&] {
                      if (file.read("K") != "parent") return 1;
                      file.write("K", "child");
                      if (!*(*cursor)->next_key()) return 2;
                      return TestFile(path).shared() == file.shared() ? 0 : 3;
                  }),
                  0);
        EXPECT_EQ(file.read("K"), "child");
        file.write("K", "parent again");
        EXPECT_EQ(file.read("K"), "parent again");
    }
}

TEST_F(Hashed, an_update_of_another_process_is_seen_at_once) {
    const TestFile file = TestFile::create(scratch / "F", "HL", lazy());
    file.write("K", "0");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        const TestFile its(scratch / "F");
        for (int i = 1; i <= 200; ++i) {
            its.write("K", std::to_string(i));
            char number = static_cast<char>(i);
            if (write(ends[1], &number, 1) != 1) _exit(1);
        }
        _exit(0);
    }
    for (int i = 1; i <= 200; ++i) {
        char number;
        ASSERT_EQ(::read(ends[0], &number, 1), 1);
        EXPECT_GE(std::stoi(file.read("K")), i);
    }
    waitpid(child, nullptr, 0);
}

TEST_F(Hashed, readers_that_were_killed_leave_room_for_others) {
    const TestFile file = TestFile::create(scratch / "F", "HL", lazy());
    file.write("K", "r");
    for (int i = 0; i < 40; ++i)
        EXPECT_EQ(in_child([&] {
                      const TestFile its(scratch / "F");
                      its.read("K");
                      auto cursor = its->select(TransferMode::Default);
                      (void)(*cursor)->next_key();
                      return raise(SIGKILL);
                  }),
                  1000 + SIGKILL);
    const auto size_before = std::filesystem::file_size(scratch / "F");
    EXPECT_EQ(in_child([&] {  // opening looks for the dead: pages are used again
                  const TestFile its(scratch / "F");
                  for (int i = 0; i < 3000; ++i) its.write("K", std::string(500, static_cast<char>('a' + i % 26)));
                  return 0;
              }),
              0);
    EXPECT_LE(std::filesystem::file_size(scratch / "F"), size_before * 4);
}

TEST_F(Hashed, an_idle_reader_lets_go_of_its_snapshot) {
    const TestFile file = TestFile::create(scratch / "F", "HL", lazy());
    file.write("K", "r");
    auto cursor = file->select(TransferMode::Default);
    ASSERT_TRUE(*(*cursor)->next_key());  // and then thinks for a while
    file.read("K");
    std::this_thread::sleep_for(100ms);
    const auto size_before = std::filesystem::file_size(scratch / "F");
    EXPECT_EQ(in_child([&] {
                  const TestFile its(scratch / "F");
                  for (int i = 0; i < 5000; ++i) its.write("K", std::string(500, static_cast<char>('a' + i % 26)));
                  return 0;
              }),
              0);
    EXPECT_LE(std::filesystem::file_size(scratch / "F"), size_before * 2);
}

TEST_F(Hashed, a_writer_killed_in_its_transaction_leaves_the_file_to_the_next) {
    for (const auto &settings : {sync(), lazy()}) {
        const std::string path = scratch / (settings.durability == Durability::Lazy ? "L" : "S");
        const TestFile file = TestFile::create(path, "HL", settings);
        file.write("K", "before");
        EXPECT_EQ(in_child([&] {
                      auto environment = Environment::open(path);
                      (*environment)->update(0, [&](MDB_txn *transaction) {
                          MDB_val key{1, const_cast<char *>("K")}, data{4, const_cast<char *>("lost")};
                          mdb_put(transaction, (*environment)->records(), &key, &data, 0);
                          return raise(SIGKILL);
                      });
                      return 0;
                  }),
                  1000 + SIGKILL);
        EXPECT_EQ(file.read("K"), "before");
        file.write("K", "after");
        EXPECT_EQ(file.read("K"), "after");
    }
}

TEST_F(Hashed, the_same_file_under_a_second_name_is_refused_while_it_is_in_use) {
    ASSERT_OK(create_file(scratch / "F", "HL", sync()));
    std::filesystem::create_hard_link(scratch / "F", scratch / "G");
    OtherUser other(scratch / "F");
    const auto opened = open_file(scratch / "G");
    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(opened.error().number, EBUSY);
    EXPECT_EQ(opened.error().message,
              "file '" + scratch / "G" +
                  "' is in use under another name: it was renamed or linked while open; close it there");
    other.leave();
    EXPECT_EQ(TestFile(scratch / "G").read("K"), "(none)");
}

TEST_F(Hashed, a_symbolic_link_to_a_file_is_that_file) {
    const TestFile file = TestFile::create(scratch / "F");
    std::filesystem::create_symlink("F", scratch / "L");
    EXPECT_EQ(TestFile(scratch / "L").shared(), file.shared());
}

TEST_F(Hashed, durability_is_not_changed_while_another_process_has_the_file_open) {
    ASSERT_OK(create_file(scratch / "F", "HL", sync()));
    OtherUser other(scratch / "F");
    const TestFile file(scratch / "F");
    auto changed = file->change_settings(lazy());
    ASSERT_FALSE(changed.ok());
    EXPECT_EQ(changed.error().number, EBUSY);
    EXPECT_EQ(changed.error().message,
              "file '" + scratch / "F" + "' is open elsewhere: its durability cannot be changed now");
    file.write("K", "still works");
    other.leave();
    EXPECT_OK(file->change_settings(lazy()));
    EXPECT_EQ(file.read("K"), "still works");
}

// --- lazy files ---

class LazyFile : public testing::TestWithParam<const char *> {
  protected:
    LazyFile() { boot("first boot"); }
    ~LazyFile() override { set_boot_id_path("/proc/sys/kernel/random/boot_id"); }
    // From now on the machine has booted anew.
    void boot(const std::string &name) {
        std::ofstream(scratch / "boot") << name << "\n";
        set_boot_id_path(scratch / "boot");
    }
    // A process that writes and is gone without closing.
    void write_and_die(const std::string &key, const std::string &record) {
        EXPECT_EQ(in_child([&] {
                      const TestFile file(scratch / "F");
                      file.write(key, record);
                      return raise(SIGKILL);
                  }),
                  1000 + SIGKILL);
    }
    ScratchDirectory scratch;
};

TEST_P(LazyFile, not_closed_before_a_power_loss_it_is_refused_until_it_is_checked) {
    TestFile::create(scratch / "F", GetParam(), lazy()).write("K", "r");
    write_and_die("K", "later");
    boot("second boot");
    const auto opened = open_file(scratch / "F");
    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(opened.error().number, NeedsCheck);
    EXPECT_EQ(opened.error().message, "file '" + scratch / "F" +
                                          "' is lazy and was in use when the machine stopped: updates may be missing; "
                                          "CHECK-FILE it, or restore it");
    EXPECT_TRUE(findings_of(scratch / "F").empty());
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "later");
}

TEST_P(LazyFile, the_death_of_a_process_alone_loses_nothing) {
    TestFile::create(scratch / "F", GetParam(), lazy()).write("K", "r");
    write_and_die("K", "later");
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "later");
}

TEST_P(LazyFile, closed_before_a_power_loss_it_opens) {
    TestFile file = TestFile::create(scratch / "F", GetParam(), lazy());
    file.write("K", "r");
    file.close();
    boot("second boot");
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "r");
}

TEST_P(LazyFile, closing_cleans_up_after_a_process_that_died) {
    TestFile::create(scratch / "F", GetParam(), lazy());
    write_and_die("K", "r");
    TestFile(scratch / "F").close();
    boot("second boot");
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "r");
}

TEST_P(LazyFile, synced_before_a_power_loss_it_opens) {
    TestFile::create(scratch / "F", GetParam(), lazy());
    EXPECT_EQ(in_child([&] {
                  const TestFile file(scratch / "F");
                  file.write("K", "r");
                  EXPECT_OK(file->sync());
                  return raise(SIGKILL);
              }),
              1000 + SIGKILL);
    boot("second boot");
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "r");
}

TEST_P(LazyFile, a_hashed_file_that_rests_is_clean_after_some_seconds) {
    if (GetParam() == std::string("UD")) return;  // a directory's mark stays until it is closed
    TestFile::create(scratch / "F", GetParam(), lazy());
    EXPECT_EQ(in_child([&] {
                  const TestFile file(scratch / "F");
                  file.write("K", "r");
                  std::this_thread::sleep_for(9s);
                  return raise(SIGKILL);
              }),
              1000 + SIGKILL);
    boot("second boot");
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "r");
}

TEST_P(LazyFile, ending_a_process_in_order_closes_its_files) {
    TestFile::create(scratch / "F", GetParam(), lazy());
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        static TestFile file;
        file = TestFile(scratch / "F");
        file.write("K", "r");
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    boot("second boot");
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "r");
}

TEST_P(LazyFile, a_sync_file_needs_no_check_after_a_power_loss) {
    TestFile::create(scratch / "F", GetParam(), sync());
    write_and_die("K", "r");
    boot("second boot");
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "r");
}

TEST_F(Hashed, a_lazy_file_is_not_larger_than_it_must_be) {
    const TestFile file = TestFile::create(scratch / "F", "HL", lazy());
    file.write("K", "r");
    EXPECT_LE(std::filesystem::file_size(scratch / "F"), 512U * 1024);
}

INSTANTIATE_TEST_SUITE_P(All, LazyFile, testing::Values("HL", "UD"),
                         [](const auto &chosen) { return std::string(chosen.param); });

}  // namespace
}  // namespace velda::store::test
