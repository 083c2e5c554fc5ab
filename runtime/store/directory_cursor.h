// directory_cursor.h - SELECT of a directory: its entries in the order in which the system gives them.
#pragma once

#include <dirent.h>

#include <string>

#include "runtime/store/driver.h"

namespace velda::store {

// Calls itself once for each record of an open directory: a plain file, a link to one, or the sub-directory of a long
// key.
class DirectoryWalk {
  public:
    // Walks through a descriptor of its own. -1 and errno on failure.
    int open(int directory);
    ~DirectoryWalk();

    // Moves to the next record and shows its key and the name of its file, relative to the directory. False at the end,
    // with the error number or 0 in `failed`.
    bool next(int &failed);
    const std::string &key() const { return key_; }
    const std::string &file_name() const { return file_name_; }

  private:
    bool is_record(const dirent &entry);

    DIR *entries_ = nullptr;
    std::string key_;
    std::string file_name_;
};

class DirectoryCursor : public Cursor {
  public:
    DirectoryCursor(std::string path, TransferMode mode) : path_(std::move(path)), mode_(mode) {}
    Result<void> open(int directory);

    Result<std::optional<std::string_view>> next_key() override;
    Result<std::optional<Item>> next_item() override;

  private:
    std::string path_;
    TransferMode mode_;
    DirectoryWalk walk_;
    int directory_ = -1;
    std::string record_;

  public:
    ~DirectoryCursor() override;
};

// Reads the file of a record in a transfer mode. An error number; ENOENT when it is no record.
int read_record_file(int directory, const std::string &file_name, RecordBuffer &into, TransferMode mode);

}  // namespace velda::store
