#include "runtime/store/directory_cursor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/store/atomic_file.h"
#include "runtime/store/directory_name.h"
#include "runtime/store/text_mode.h"

namespace velda::store {

int DirectoryWalk::open(int directory) {
    const int own = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (own < 0) return -1;
    entries_ = fdopendir(own);
    if (entries_) return 0;
    ::close(own);
    return -1;
}

DirectoryWalk::~DirectoryWalk() {
    if (entries_) closedir(entries_);
}

bool DirectoryWalk::next(int &failed) {
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(entries_);
        failed = entry ? 0 : errno;
        if (!entry) return false;
        if (is_record(*entry)) return true;
    }
}

bool DirectoryWalk::is_record(const dirent &entry) {
    const std::string name = entry.d_name;
    if (name.starts_with(LongPrefix)) {
        StringBuffer key(key_);
        file_name_ = name + "/record";
        return read_whole_file(dirfd(entries_), name + "/key", key) == 0;
    }
    if (entry.d_type == DT_DIR) return false;
    if (entry.d_type != DT_REG) {
        struct stat status;
        if (fstatat(dirfd(entries_), entry.d_name, &status, 0) < 0 || !S_ISREG(status.st_mode)) return false;
    }
    auto key = decode_name(name);
    if (!key) return false;
    key_ = std::move(*key);
    file_name_ = name;
    return true;
}

DirectoryCursor::~DirectoryCursor() {
    if (directory_ >= 0) ::close(directory_);
}

Result<void> DirectoryCursor::open(int directory) {
    directory_ = fcntl(directory, F_DUPFD_CLOEXEC, 0);
    if (directory_ < 0 || walk_.open(directory_) < 0) return system_error(errno, "cannot select from file", path_);
    return {};
}

Result<std::optional<std::string_view>> DirectoryCursor::next_key() {
    int failed;
    if (walk_.next(failed)) return std::optional<std::string_view>(walk_.key());
    if (failed) return system_error(failed, "cannot select from file", path_);
    return std::optional<std::string_view>();
}

Result<std::optional<Cursor::Item>> DirectoryCursor::next_item() {
    for (;;) {
        auto key = next_key();
        if (!key) return key.error();
        if (!*key) return std::optional<Item>();
        StringBuffer into(record_);
        const int rc = read_record_file(directory_, walk_.file_name(), into, mode_);
        if (rc == ENOENT) continue;  // deleted since
        if (rc) return system_error(rc, "cannot read record", path_ + "/" + walk_.file_name());
        return std::optional<Item>(Item{**key, record_});
    }
}

int read_record_file(int directory, const std::string &file_name, RecordBuffer &into, TransferMode mode) {
    if (mode == TransferMode::Binary) return read_whole_file(directory, file_name, into);
    // The last line feed is no part of the record, which is known only when the file has been read.
    static thread_local std::string text;
    StringBuffer buffer(text);
    const int rc = read_whole_file(directory, file_name, buffer);
    if (rc) return rc;
    const std::size_t size = text.ends_with('\n') ? text.size() - 1 : text.size();
    char *const target = into.prepare(size);
    text.copy(target, size);
    exchange_line_ends(target, size);
    constexpr std::size_t KeptBytes = 1 << 20;
    if (text.capacity() > KeptBytes) std::string().swap(text);
    return 0;
}

}  // namespace velda::store
