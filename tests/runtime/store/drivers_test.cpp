// What holds for every driver, each test run on both.
#include <gtest/gtest.h>

#include <random>

#include "tests/runtime/store/fixture.h"

namespace velda::store::test {
namespace {

struct DriverCase {
    std::string name;
    std::string type;
    Durability durability;
};

class Drivers : public testing::TestWithParam<DriverCase> {
  protected:
    FileSettings settings() const { return {.durability = GetParam().durability, .options = {}}; }
    // Each update of a sync file waits for the disk: such files get a tenth of the work.
    int scaled(int count) const { return GetParam().durability == Durability::Lazy ? count : count / 10; }
    TestFile create(const std::string &name) const {
        return TestFile::create(scratch / name, GetParam().type, settings());
    }
    ScratchDirectory scratch;
};

TEST_P(Drivers, a_record_reads_back_as_it_was_written) {
    const TestFile file = create("F");
    file.write("K", marks("a^b]c\\d"));
    EXPECT_EQ(file.read("K"), marks("a^b]c\\d"));
}

TEST_P(Drivers, an_absent_record_is_not_read) {
    const TestFile file = create("F");
    EXPECT_EQ(file.read("K"), "(none)");
    EXPECT_FALSE(*file->exists("K"));
}

TEST_P(Drivers, the_empty_record_exists) {
    const TestFile file = create("F");
    file.write("K", "");
    EXPECT_EQ(file.read("K"), "");
    EXPECT_TRUE(*file->exists("K"));
}

TEST_P(Drivers, a_second_write_replaces_the_record) {
    const TestFile file = create("F");
    file.write("K", "a long first record");
    file.write("K", "short");
    EXPECT_EQ(file.read("K"), "short");
    EXPECT_EQ(file.count(), 1U);
}

TEST_P(Drivers, remove_tells_whether_there_was_a_record) {
    const TestFile file = create("F");
    file.write("K", "r");
    EXPECT_TRUE(file.remove("K"));
    EXPECT_FALSE(file.remove("K"));
    EXPECT_EQ(file.read("K"), "(none)");
}

TEST_P(Drivers, any_bytes_make_a_key_and_a_record) {
    const TestFile file = create("F");
    std::string every;
    for (int byte = 0; byte < 256; ++byte) every.push_back(static_cast<char>(byte));
    const int step = scaled(10) == 10 ? 1 : 16;
    for (int byte = 0; byte < 256; byte += step) file.write(std::string(1, static_cast<char>(byte)), every);
    file.write(every, every);
    for (int byte = 0; byte < 256; byte += step)
        EXPECT_EQ(file.read(std::string(1, static_cast<char>(byte))), every) << byte;
    EXPECT_EQ(file.read(every), every);
    EXPECT_EQ(file.keys().size(), 256U / step + 1);
}

TEST_P(Drivers, keys_of_every_length_up_to_64_KiB_work) {
    const TestFile file = create("F");
    const std::size_t lengths[] = {0, 1, 254, 255, 256, 509, 510, 511, 512, 513, 1000, 4096, 65535, 65536};
    for (const std::size_t length : lengths) file.write(std::string(length, 'k'), std::to_string(length));
    for (const std::size_t length : lengths) EXPECT_EQ(file.read(std::string(length, 'k')), std::to_string(length));
    EXPECT_EQ(file.keys().size(), std::size(lengths));
    for (const std::size_t length : lengths) EXPECT_TRUE(file.remove(std::string(length, 'k'))) << length;
    EXPECT_TRUE(file.keys().empty());
}

TEST_P(Drivers, a_key_longer_than_64_KiB_is_refused) {
    const TestFile file = create("F");
    auto written = file->write(std::string(65537, 'k'), "r", TransferMode::Default);
    ASSERT_FALSE(written.ok());
    EXPECT_EQ(written.error().number, EINVAL);
    EXPECT_EQ(written.error().message, "file '" + scratch / "F" + "': a key of 65537 bytes is longer than 65536");
}

TEST_P(Drivers, clear_removes_every_record_and_keeps_the_control_records) {
    const TestFile file = create("F");
    for (int i = 0; i < scaled(300); ++i) file.write("K" + std::to_string(i), "r");
    file.write(std::string(600, 'k'), "r");
    ASSERT_OK(file->control_write(7, "seven"));
    ASSERT_OK(file->clear());
    EXPECT_TRUE(file.keys().empty());
    EXPECT_EQ(**file->control_read(7), "seven");
}

TEST_P(Drivers, a_batch_is_applied_in_order) {
    const TestFile file = create("F");
    file.write("old", "r");
    ASSERT_OK(file->apply(
        {{"a", "1"}, {"b", "2"}, {"a", "3"}, {"b", std::nullopt}, {"old", std::nullopt}, {"absent", std::nullopt}},
        TransferMode::Default));
    EXPECT_EQ(file.items(), (std::map<std::string, std::string>{{"a", "3"}}));
}

TEST_P(Drivers, control_records_are_no_records) {
    const TestFile file = create("F");
    ASSERT_OK(file->control_write(1, "one"));
    ASSERT_OK(file->control_write(4294967295U, marks("last^one")));
    EXPECT_EQ(**file->control_read(1), "one");
    EXPECT_EQ(**file->control_read(4294967295U), marks("last^one"));
    EXPECT_FALSE((*file->control_read(2)).has_value());
    EXPECT_TRUE(file.keys().empty());
    EXPECT_TRUE(*file->control_remove(1));
    EXPECT_FALSE(*file->control_remove(1));
    EXPECT_FALSE((*file->control_read(1)).has_value());
}

TEST_P(Drivers, settings_live_in_the_file) {
    FileSettings given{
        .durability = GetParam().durability, .journalled = false, .permissions = 0640, .options = {"-L", "-T"}};
    TestFile file = TestFile::create(scratch / "F", GetParam().type, given);
    file.close();
    file = TestFile(scratch / "F");
    EXPECT_EQ(*file->settings(), given);
    EXPECT_EQ(file->status()->settings, given);
    given.journalled = true;
    given.options = {"-B"};
    ASSERT_OK(file->change_settings(given));
    file.close();
    EXPECT_EQ(*TestFile(scratch / "F")->settings(), given);
}

TEST_P(Drivers, durability_can_be_changed) {
    const TestFile file = create("F");
    file.write("K", "r");
    for (const Durability durability : {Durability::Lazy, Durability::Sync, Durability::Lazy}) {
        FileSettings settings = *file->settings();
        settings.durability = durability;
        ASSERT_OK(file->change_settings(settings));
        EXPECT_EQ(file->settings()->durability, durability);
        EXPECT_EQ(file.read("K"), "r");
        file.write("K", "r");
    }
}

TEST_P(Drivers, a_file_is_not_made_over_another) {
    create("F").write("K", "r");
    const auto made = create_file(scratch / "F", GetParam().type, settings());
    ASSERT_FALSE(made.ok());
    EXPECT_EQ(made.error().number, EEXIST);
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "r");
}

TEST_P(Drivers, a_destroyed_file_is_gone) {
    create("F").write("K", "r");
    ASSERT_OK(destroy_file(scratch / "F"));
    EXPECT_EQ(open_file(scratch / "F").error().number, ENOENT);
    EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
    EXPECT_EQ(create("F").read("K"), "(none)");
}

TEST_P(Drivers, a_copy_has_the_same_records_settings_and_control_records) {
    const TestFile file = create("F");
    for (int i = 0; i < scaled(100); ++i) file.write("K" + std::to_string(i), marks("r^") + std::to_string(i));
    file.write(std::string(3000, 'k'), "long");
    ASSERT_OK(file->control_write(5, "five"));
    ASSERT_OK(copy_file(scratch / "F", scratch / "G"));
    const TestFile copy(scratch / "G");
    EXPECT_EQ(copy.items(), file.items());
    EXPECT_EQ(*copy->settings(), *file->settings());
    EXPECT_EQ(**copy->control_read(5), "five");
    copy.write("K1", "changed");
    EXPECT_EQ(file.read("K1"), marks("r^1"));
    EXPECT_TRUE(findings_of(scratch / "G").empty());
}

TEST_P(Drivers, a_moved_file_has_its_new_name_only) {
    create("F").write("K", "r");
    ASSERT_OK(move_file(scratch / "F", scratch / "G"));
    EXPECT_EQ(open_file(scratch / "F").error().number, ENOENT);
    const TestFile moved(scratch / "G");
    EXPECT_EQ(moved.read("K"), "r");
    EXPECT_EQ(moved->path(), scratch / "G");
}

TEST_P(Drivers, a_file_that_is_open_may_be_moved) {
    const TestFile file = create("F");
    file.write("K", "r");
    ASSERT_OK(move_file(scratch / "F", scratch / "G"));
    const TestFile moved(scratch / "G");
    file.write("K", "through the old handle");
    EXPECT_EQ(moved.read("K"), "through the old handle");
    EXPECT_EQ(moved->path(), scratch / "G");
    EXPECT_EQ(moved->identity(), file->identity());
}

TEST_P(Drivers, a_copy_or_move_replaces_no_file) {
    create("F").write("K", "f");
    create("G").write("K", "g");
    EXPECT_EQ(copy_file(scratch / "F", scratch / "G").error().number, EEXIST);
    EXPECT_EQ(move_file(scratch / "F", scratch / "G").error().number, EEXIST);
    EXPECT_EQ(TestFile(scratch / "F").read("K"), "f");
    EXPECT_EQ(TestFile(scratch / "G").read("K"), "g");
}

TEST_P(Drivers, one_path_opened_twice_is_one_file) {
    const TestFile file = create("F");
    EXPECT_EQ(TestFile(scratch / "F").shared(), file.shared());
    EXPECT_EQ(TestFile(scratch / "./F").shared(), file.shared());
}

TEST_P(Drivers, a_file_made_anew_under_a_path_is_another_file) {
    const TestFile old = create("F");
    old.write("K", "old");
    ASSERT_OK(destroy_file(scratch / "F"));
    const TestFile file = create("F");
    EXPECT_NE(file.shared(), old.shared());
    EXPECT_EQ(file.read("K"), "(none)");
}

TEST_P(Drivers, a_clean_file_checks_clean) {
    const TestFile file = create("F");
    for (int i = 0; i < scaled(500); ++i) file.write("K" + std::to_string(i), std::string(i * 20, 'r'));
    for (int i = 0; i < scaled(20); ++i) file.write(std::string(600 + i, 'k'), std::string(i * 1000, 'r'));
    std::vector<std::string> findings;
    EXPECT_EQ(*check_file(scratch / "F", [&](std::string_view finding) { findings.emplace_back(finding); }),
              static_cast<unsigned>(scaled(520)));
    EXPECT_EQ(findings, std::vector<std::string>());
}

TEST_P(Drivers, a_select_sees_every_untouched_record_once_while_others_are_written_and_removed) {
    const TestFile file = create("F");
    std::set<std::string> untouched;
    for (int i = 0; i < scaled(1500); ++i) {
        const std::string key = "K" + std::to_string(i);
        file.write(key, "r");
        if (i % 3) untouched.insert(key);
    }
    auto cursor = file->select(TransferMode::Default);
    ASSERT_OK(cursor);
    std::set<std::string> seen;
    for (int step = 0;; ++step) {
        auto key = (*cursor)->next_key();
        ASSERT_OK(key);
        if (!*key) break;
        EXPECT_TRUE(seen.emplace(**key).second) << **key;
        file.remove("K" + std::to_string(step % scaled(500) * 3));
        if (step % 4 == 0 && step < scaled(2000)) file.write("new" + std::to_string(step), "r");
    }
    for (const auto &key : untouched) EXPECT_TRUE(seen.contains(key)) << key;
}

TEST_P(Drivers, a_cursor_may_change_from_keys_to_items) {
    const TestFile file = create("F");
    for (int i = 0; i < 10; ++i) file.write("K" + std::to_string(i), "r" + std::to_string(i));
    auto cursor = file->select(TransferMode::Default);
    std::set<std::string> seen;
    for (int i = 0; i < 10; ++i) {
        if (i % 2) {
            auto item = (*cursor)->next_item();
            ASSERT_TRUE(item.ok() && *item);
            EXPECT_EQ((*item)->record.substr(1), (*item)->key.substr(1));
            seen.emplace((*item)->key);
        } else {
            auto key = (*cursor)->next_key();
            ASSERT_TRUE(key.ok() && *key);
            seen.emplace(**key);
        }
    }
    EXPECT_EQ(seen.size(), 10U);
    EXPECT_FALSE((*(*cursor)->next_item()).has_value());
    EXPECT_FALSE((*(*cursor)->next_key()).has_value());
}

TEST_P(Drivers, random_operations_agree_with_a_map) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const TestFile file = create("F");
    std::map<std::string, std::string> model;
    const auto pick_key = [&] {
        const std::size_t length = random() % 10 == 0 ? random() % 700 : 1 + random() % 3;
        std::string key(length, 'k');
        for (auto &byte : key) byte = "ab/.%2F\0\xFE"[random() % 9];
        return key;
    };
    const auto pick_record = [&] {
        std::string record(random() % 20 == 0 ? random() % 20000 : random() % 50, 'r');
        for (auto &byte : record) byte = static_cast<char>(random());
        return record;
    };
    for (int step = 0; step < scaled(3000); ++step) {
        const std::string key = pick_key();
        switch (random() % 8) {
            case 0:
            case 1:
            case 2: {
                const std::string record = pick_record();
                file.write(key, record);
                model[key] = record;
                break;
            }
            case 3:
                EXPECT_EQ(file.remove(key), model.erase(key) == 1);
                break;
            case 4: {
                std::vector<std::pair<std::string, std::optional<std::string>>> changes;
                for (unsigned i = random() % 5; i > 0; --i) {
                    changes.emplace_back(pick_key(), std::nullopt);
                    if (random() % 2) changes.back().second = pick_record();
                }
                std::vector<Update> updates;
                for (const auto &[changed, record] : changes) {
                    updates.push_back({changed, record ? std::optional<std::string_view>(*record) : std::nullopt});
                    if (record)
                        model[changed] = *record;
                    else
                        model.erase(changed);
                }
                EXPECT_OK(file->apply(updates, TransferMode::Default));
                break;
            }
            default:
                EXPECT_EQ(file.read(key), model.contains(key) ? model[key] : "(none)");
        }
        if (step % 100 == 0) {
            EXPECT_EQ(file.items(), model);
            EXPECT_EQ(file.count(), model.size());
        }
    }
    EXPECT_EQ(file.items(), model);
    EXPECT_TRUE(findings_of(scratch / "F").empty());
}

INSTANTIATE_TEST_SUITE_P(All, Drivers,
                         testing::Values(DriverCase{"hashed_sync", "HL", Durability::Sync},
                                         DriverCase{"hashed_lazy", "HL", Durability::Lazy},
                                         DriverCase{"directory_sync", "UD", Durability::Sync},
                                         DriverCase{"directory_lazy", "UD", Durability::Lazy}),
                         [](const auto &chosen) { return chosen.param.name; });

}  // namespace
}  // namespace velda::store::test
