// fixture.h - verbs for the store's tests: files in a scratch directory, written and read in one line each.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <set>
#include <string>

#include "runtime/store/driver.h"
#include "tests/support/marks.h"
#include "tests/support/scratch.h"

namespace velda::store::test {

using velda::test::ScratchDirectory;

inline FileSettings lazy() { return {.durability = Durability::Lazy, .options = {}}; }
inline FileSettings sync() { return {.durability = Durability::Sync, .options = {}}; }

inline std::string error_text(const Error &error) { return std::to_string(error.number) + ": " + error.message; }

#define ASSERT_OK(call)                                                                               \
    do {                                                                                              \
        auto &&result_of_call = (call);                                                               \
        ASSERT_TRUE(result_of_call.ok()) << ::velda::store::test::error_text(result_of_call.error()); \
    } while (0)
#define EXPECT_OK(call)                                                                               \
    do {                                                                                              \
        auto &&result_of_call = (call);                                                               \
        EXPECT_TRUE(result_of_call.ok()) << ::velda::store::test::error_text(result_of_call.error()); \
    } while (0)

// A file under test; every failure of the store fails the test with its message.
class TestFile {
  public:
    TestFile() = default;
    explicit TestFile(const std::string &path) {
        auto opened = open_file(path);
        if (!opened) throw std::runtime_error(error_text(opened.error()));
        file_ = *opened;
    }
    static TestFile create(const std::string &path, std::string_view type = "HL",
                           const FileSettings &settings = sync()) {
        EXPECT_OK(create_file(path, type, settings));
        return TestFile(path);
    }

    OpenFile *operator->() const { return file_.get(); }
    OpenFile &operator*() const { return *file_; }
    std::shared_ptr<OpenFile> shared() const { return file_; }
    void close() { file_.reset(); }

    void write(std::string_view key, std::string_view record, TransferMode mode = TransferMode::Default) const {
        EXPECT_OK(file_->write(key, record, mode));
    }
    // The record, or "(none)".
    std::string read(std::string_view key, TransferMode mode = TransferMode::Default) const {
        std::string record;
        StringBuffer into(record);
        auto found = file_->read(key, into, mode);
        EXPECT_TRUE(found.ok()) << error_text(found.error());
        return found && *found ? record : "(none)";
    }
    bool remove(std::string_view key) const {
        auto removed = file_->remove(key);
        EXPECT_TRUE(removed.ok()) << error_text(removed.error());
        return removed && *removed;
    }
    std::uint64_t count() const {
        auto status = file_->status();
        EXPECT_TRUE(status.ok()) << error_text(status.error());
        return status ? status->records : 0;
    }
    // Every key that a SELECT gives; a key given twice fails the test.
    std::set<std::string> keys() const {
        std::set<std::string> result;
        auto cursor = file_->select(TransferMode::Default);
        EXPECT_TRUE(cursor.ok());
        for (;;) {
            auto key = (*cursor)->next_key();
            EXPECT_TRUE(key.ok()) << error_text(key.error());
            if (!key || !*key) return result;
            EXPECT_TRUE(result.emplace(**key).second) << "given twice: " << **key;
        }
    }
    std::map<std::string, std::string> items(TransferMode mode = TransferMode::Default) const {
        std::map<std::string, std::string> result;
        auto cursor = file_->select(mode);
        EXPECT_TRUE(cursor.ok());
        for (;;) {
            auto item = (*cursor)->next_item();
            EXPECT_TRUE(item.ok()) << error_text(item.error());
            if (!item || !*item) return result;
            EXPECT_TRUE(result.emplace((*item)->key, (*item)->record).second) << "given twice: " << (*item)->key;
        }
    }

  private:
    std::shared_ptr<OpenFile> file_;
};

// Runs `body` in a child process; its result is the child's exit code, or 1000 plus the signal that killed it.
inline int in_child(const std::function<int()> &body) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int code = body();
        fflush(nullptr);
        _exit(code);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

inline std::vector<std::string> findings_of(const std::string &path) {
    std::vector<std::string> findings;
    auto checked = check_file(path, [&](std::string_view finding) { findings.emplace_back(finding); });
    EXPECT_TRUE(checked.ok()) << error_text(checked.error());
    return findings;
}

}  // namespace velda::store::test
