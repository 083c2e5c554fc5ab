// hashed_file.h - the driver "HL": records in an LMDB environment. See hashed_format.h for what lies in it.
#pragma once

#include <memory>
#include <string>

#include "runtime/store/driver.h"
#include "runtime/store/environment.h"

namespace velda::store {

class HashedFile : public OpenFile {
  public:
    HashedFile(std::string path, std::shared_ptr<Environment> environment)
        : path_(std::move(path)), environment_(std::move(environment)) {}

    FileIdentity identity() const override { return environment_->identity(); }
    std::string_view type() const override { return "HL"; }
    std::string_view path() const override { return path_; }
    bool writable() const override { return environment_->writable(); }

    Result<bool> read(std::string_view key, RecordBuffer &into, TransferMode mode) override;
    Result<bool> exists(std::string_view key) override;
    Result<void> write(std::string_view key, std::string_view record, TransferMode mode) override;
    Result<bool> remove(std::string_view key) override;
    Result<void> apply(const std::vector<Update> &updates, TransferMode mode) override;
    bool applies_whole() const override { return true; }
    Result<void> clear() override;
    Result<std::unique_ptr<Cursor>> select(TransferMode mode) override;

    Result<std::optional<std::string>> control_read(std::uint32_t number) override;
    Result<void> control_write(std::uint32_t number, std::string_view block) override;
    Result<bool> control_remove(std::uint32_t number) override;

    Result<FileStatus> status() override;
    Result<FileSettings> settings() override;
    Result<void> change_settings(const FileSettings &settings) override;
    Result<void> sync() override { return environment_->sync(); }

    // Brings the journal up to date about a change that its writer did not live to make.
    void settle();

  private:
    template <class Journal>
    Result<void> journal_noted(std::uint64_t transaction, Journal &&journal);
    Result<void> journal_unfinished(MDB_txn *transaction);
    Result<void> journal_present(MDB_txn *transaction, const std::vector<std::string> &keys);
    Result<void> journal_all_present(MDB_txn *transaction);
    template <class Change, class Journal>
    Result<void> change(std::size_t room_bytes, std::string_view failed, Change &&change, Journal &&journal);
    Result<std::optional<std::string>> read_control(std::string_view key);
    Result<void> write_control(std::string_view key, std::string_view block);
    Error failure(int rc, std::string_view what) const { return lmdb_error(rc, what, path_); }

    std::string path_;
    std::shared_ptr<Environment> environment_;
};

class HashedDriver : public Driver {
  public:
    std::string_view type() const override { return "HL"; }
    bool recognises(const std::string &path) override;
    Result<void> create(const std::string &path, const FileSettings &settings) override;
    Result<std::unique_ptr<OpenFile>> open(const std::string &path) override;
    Result<void> destroy(const std::string &path) override;
    Result<void> copy(const std::string &from, const std::string &to) override;
    Result<void> move(const std::string &from, const std::string &to) override;
    Result<std::uint64_t> check(const std::string &path, const CheckReport &report) override;
};

// Error 22 or 27 for a key or record that no driver takes.
Result<void> check_sizes(std::string_view key, std::size_t record_bytes, std::string_view path);

}  // namespace velda::store
