// session_fixture.h - sessions, files and transactions as the tests of this folder speak of them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "runtime/process/context.h"
#include "runtime/vutil.h"
#include "tests/support/marks.h"
#include "tests/support/scratch.h"

namespace velda::test {

// A session with the files that it has open. Its words work on its own context; several sessions of one thread take
// turns.
class Session {
  public:
    Session() : dp_(velda_new_context()) {}
    ~Session() { velda_free_context(dp_); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    DP *dp() { return dp_; }
    void open(const std::string &path) { ASSERT_EQ(open_file(path, file), 1) << path; }
    int open_file(const std::string &path, VAR &cell) {
        const VAR name(path);
        return VLibFNEWOPEN_IIBBBB(dp_, 0, nullptr, &name, &cell, nullptr);
    }

    bool begin() { return velda_transaction_begin(dp_, nullptr) == 1; }
    bool commit() { return velda_transaction_commit(dp_, nullptr) == 1; }
    bool abort() { return velda_transaction_abort(dp_, nullptr) == 1; }
    bool active() { return velda_transaction_active(dp_) == 1; }
    std::string error() { return velda_transaction_error(dp_); }

    // Results of the statements, 3 for an error.
    int write(const std::string &key, std::string_view visible, int flags = 0) {
        return write_to(file, key, visible, flags);
    }
    int write_to(const VAR &cell, const std::string &key, std::string_view visible, int flags = 0) {
        const VAR record(marks(visible)), name(key);
        return VLibFNEWWRITE_IIBBBIB(dp_, flags | VELDA_REPORT_ERRORS, &cell, &record, &name, 0, &setting);
    }
    int remove(const std::string &key, int flags = 0) { return remove_from(file, key, flags); }
    int remove_from(const VAR &cell, const std::string &key, int flags = 0) {
        const VAR name(key);
        return VLibFNEWDELETE_IIBBB(dp_, flags | VELDA_REPORT_ERRORS, &cell, &name, &setting);
    }
    // The record with visible marks; "(none)" when there is none.
    std::string read(const std::string &key) { return read_from(file, key); }
    std::string read_from(const VAR &cell, const std::string &key) {
        VAR record;
        const VAR name(key);
        const int result = VLibFNEWREAD_IIBBBIB(dp_, VELDA_REPORT_ERRORS, &cell, &record, &name, 0, &setting);
        if (result == 3) return "(error " + std::to_string(setting.to_integer()) + ")";
        return result == 1 ? shown(record.view()) : "(none)";
    }
    // READU without waiting: 1, 0 or 2.
    int read_locked(const std::string &key) {
        VAR record;
        const VAR name(key);
        return VLibFNEWREAD_IIBBBIB(dp_, VELDA_READ_LOCK_NOWAIT | VELDA_REPORT_ERRORS, &file, &record, &name, 0,
                                    &setting);
    }
    int release(const std::string &key) {
        const VAR name(key);
        return VLibFRELEASE_IBB(dp_, &file, &name);
    }

    VAR file;
    VAR setting;

  private:
    DP *dp_;
};

// A system of its own with two hashed files A and B and a directory file D, and sessions on A.
class TransactionTest : public testing::Test {
  protected:
    TransactionTest() {
        make("A");
        make("B");
        make("D TYPE=UD");
        one.open(path("A"));
        two.open(path("A"));
    }
    std::string path(const std::string &name) const { return system_ / name; }
    void make(const std::string &words) {
        VAR message;
        const VAR operands(change(VAR(path(words)), " ", AM));
        ASSERT_EQ(velda_create_file(one.dp(), &operands, &message), 1) << message.str();
    }

    ScratchSystem system_;
    Session one;
    Session two;
};

}  // namespace velda::test
