// directory_file.h - the driver "UD": each record is a plain file of one directory. See directory_name.h for the names
// and text_mode.h for the contents.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

#include "runtime/store/directory_mark.h"
#include "runtime/store/driver.h"
#include "runtime/store/path.h"

namespace velda::store {

// The hidden file that keeps a directory's settings and control records; a directory without one has the defaults.
inline constexpr std::string_view ControlFileName = ".velda-control";

class DirectoryFile : public OpenFile {
  public:
    static Result<std::unique_ptr<OpenFile>> open(const std::string &path);
    // Opens for a check: also a lazy directory that another boot left marked.
    static Result<std::unique_ptr<DirectoryFile>> open_marked(const std::string &path);
    Result<void> clear_mark() { return mark_.clear(); }

    FileIdentity identity() const override { return identity_; }
    std::string_view type() const override { return "UD"; }
    std::string_view path() const override { return path_; }
    bool writable() const override;

    Result<bool> read(std::string_view key, RecordBuffer &into, TransferMode mode) override;
    Result<bool> exists(std::string_view key) override;
    Result<void> write(std::string_view key, std::string_view record, TransferMode mode) override;
    Result<bool> remove(std::string_view key) override;
    Result<void> apply(const std::vector<Update> &updates, TransferMode mode) override;
    bool applies_whole() const override { return false; }
    std::string as_read(std::string_view record, TransferMode written, TransferMode read) const override;
    Result<void> clear() override;
    Result<std::unique_ptr<Cursor>> select(TransferMode mode) override;

    Result<std::optional<std::string>> control_read(std::uint32_t number) override;
    Result<void> control_write(std::uint32_t number, std::string_view block) override;
    Result<bool> control_remove(std::uint32_t number) override;

    Result<FileStatus> status() override;
    Result<FileSettings> settings() override;
    Result<void> change_settings(const FileSettings &settings) override;
    Result<void> sync() override;
    void finish() override { (void)mark_.leave_clean(); }

  private:
    DirectoryFile(std::string path, int descriptor, FileIdentity identity)
        : path_(std::move(path)), directory_(descriptor), mark_(descriptor, path_), identity_(identity) {}

    int directory() const { return directory_.number(); }
    Error failure(int number, std::string_view what, std::string_view key) const;
    template <class Change, class Journal>
    Result<void> change(std::string_view failed, std::string_view key, Change &&change, Journal &&journal);
    int remove_record(std::string_view key, const std::function<int()> &before);
    int remove_all(const std::function<int()> &before);

    std::string path_;
    Descriptor directory_;
    DirectoryMark mark_;
    FileIdentity identity_;
    std::atomic<bool> lazy_{false};
    std::mutex turn_;  // beside the directory's turn, which threads of a process share
};

}  // namespace velda::store
