// path.h - small helpers about paths and descriptors that both drivers use.
#pragma once

#include <string>

#include "runtime/base/result.h"
#include "runtime/store/file_turn.h"

namespace velda::store {

// A file descriptor that is closed with its scope; -1 is none.
class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor();
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int number() const { return number_; }
    // Closes now; the result of close().
    int close();

  private:
    int number_;
};

// The turn to make, remove or rename files in a directory; none for "". A directory that may not be read is not locked.
class DirectoryTurn {
  public:
    explicit DirectoryTurn(const std::string &directory);
    // Makes the names given and taken so far durable.
    void sync() const;

  private:
    Descriptor directory_;
    FileTurn turn_;
};

// A name for a new file in the same directory, hidden and this process's own. What is left there is removed with it.
class TemporaryPath {
  public:
    explicit TemporaryPath(const std::string &final_path);
    ~TemporaryPath();
    TemporaryPath(const TemporaryPath &) = delete;
    TemporaryPath &operator=(const TemporaryPath &) = delete;
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

// What the names of the store's own hidden files begin with.
inline constexpr std::string_view HiddenPrefix = ".velda-";
inline constexpr std::string_view TemporaryPrefix = ".velda-new-";  // then process number, "-", a count

std::string parent_directory(const std::string &path);
std::string base_name(const std::string &path);

// True when something has this name, also a link that leads nowhere.
bool path_exists(const std::string &path);

// Renames without replacing; -1 and errno, EEXIST when `to` exists.
int rename_new(const std::string &from, const std::string &to);

// The set-id and sticky bits among `permissions`, which the calls that make files do not take. -1 and errno on failure.
int set_special_modes(int descriptor, int permissions);

// Absolute, the directories' symbolic links resolved; the last part is resolved too when it is a link to something. The
// last part need not exist.
Result<std::string> absolute_path(const std::string &path);

}  // namespace velda::store
