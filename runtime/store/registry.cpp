// The one road from a path to an open file: which driver it belongs to, and whether this process has it open already.
#include <signal.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

#include "runtime/store/directory_driver.h"
#include "runtime/store/driver.h"
#include "runtime/store/hashed_file.h"
#include "runtime/store/journalling.h"
#include "runtime/store/path.h"

namespace velda::store {
namespace {

constexpr std::size_t MaxKnownPaths = 10000;

struct IdentityHash {
    std::size_t operator()(const FileIdentity &identity) const { return identity.inode * 31 + identity.device; }
};
struct PathHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view path) const { return std::hash<std::string_view>()(path); }
};

struct KnownPath {
    FileIdentity identity;
    std::weak_ptr<OpenFile> file;
};

std::array<Driver *, 2> drivers() {
    static HashedDriver hashed;
    static DirectoryDriver directory;
    return {&hashed, &directory};
}

Result<Driver *> driver_of_type(std::string_view type) {
    for (Driver *driver : drivers())
        if (driver->type() == type) return driver;
    return Error{EINVAL, "there is no file type '" + std::string(type) + "'"};
}

Result<Driver *> driver_of_path(const std::string &path) {
    for (Driver *driver : drivers())
        if (driver->recognises(path)) return driver;
    if (!path_exists(path)) return system_error(ENOENT, "cannot open file", path);
    return Error{EINVAL, "'" + path + "' is not a database file"};
}

class OpenFiles {
  public:
    // Never destroyed: cells that outlive main() still close their files.
    static OpenFiles &instance() {
        static OpenFiles *const files = new OpenFiles;
        return *files;
    }

    Result<std::shared_ptr<OpenFile>> open(std::string_view path) {
        const std::string name(path);
        struct stat status;
        if (stat(name.c_str(), &status) < 0) return system_error(errno, "cannot open file", name);
        const FileIdentity identity{status.st_dev, status.st_ino};
        const std::lock_guard lock(mutex_);
        if (const auto at = paths_.find(path); at != paths_.end() && at->second.identity == identity) {
            if (auto file = at->second.file.lock()) return file;
        }
        auto file = open_unknown(name, identity);
        if (!file) return file.error();
        if (paths_.size() >= MaxKnownPaths) paths_.clear();
        paths_.insert_or_assign(name, KnownPath{(*file)->identity(), *file});
        return file;
    }

    void visit(const std::function<void(OpenFile &)> &visit) {
        std::vector<std::shared_ptr<OpenFile>> files;
        {
            const std::lock_guard lock(mutex_);
            for (const auto &[identity, known] : files_)
                if (auto file = known.lock()) files.push_back(std::move(file));
        }
        for (const auto &file : files) visit(*file);
    }

  private:
    OpenFiles() {
        release_snapshots();  // sets up the environments' own fork handlers, which must lock after these
        pthread_atfork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                       [] { instance().mutex_.unlock(); });
        std::atexit([] { instance().visit([](OpenFile &file) { file.finish(); }); });
        // A file that may not grow larger is an error of the write, not the death of the process.
        struct sigaction action;
        if (sigaction(SIGXFSZ, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) signal(SIGXFSZ, SIG_IGN);
    }

    // A path that is new here may lead to a file that is open under another one. That one is shared, unless the file
    // has been renamed: then it is opened under its present path.
    Result<std::shared_ptr<OpenFile>> open_unknown(const std::string &name, const FileIdentity &identity) {
        auto path = absolute_path(name);
        if (!path) return path.error();
        if (auto file = files_[identity].lock(); file && file->path() == *path) return file;
        auto driver = driver_of_path(*path);
        if (!driver) return driver.error();
        auto opened = (*driver)->open(*path);
        if (!opened) return opened.error();
        std::shared_ptr<OpenFile> file = std::move(*opened);
        std::erase_if(files_, [](const auto &known) { return known.second.expired(); });
        files_[file->identity()] = file;
        return file;
    }

    std::mutex mutex_;
    std::unordered_map<std::string, KnownPath, PathHash, std::equal_to<>> paths_;
    std::unordered_map<FileIdentity, std::weak_ptr<OpenFile>, IdentityHash> files_;
};

}  // namespace

Result<std::shared_ptr<OpenFile>> open_file(std::string_view path) { return OpenFiles::instance().open(path); }

void for_each_open_file(const std::function<void(OpenFile &)> &visit) { OpenFiles::instance().visit(visit); }

Result<void> create_file(std::string_view path, std::string_view type, const FileSettings &settings) {
    auto driver = driver_of_type(type);
    if (!driver) return driver.error();
    auto absolute = absolute_path(std::string(path));
    if (!absolute) return absolute.error();
    const JournalBatch batch;
    return batch.allowed() ? (*driver)->create(*absolute, settings) : batch.allowed();
}

Result<void> destroy_file(std::string_view path) {
    auto absolute = absolute_path(std::string(path));
    if (!absolute) return absolute.error();
    auto driver = driver_of_path(*absolute);
    if (!driver) return driver.error();
    const JournalBatch batch;
    return batch.allowed() ? (*driver)->destroy(*absolute) : batch.allowed();
}

Result<void> copy_file(std::string_view from, std::string_view to) {
    auto source = absolute_path(std::string(from));
    if (!source) return source.error();
    auto target = absolute_path(std::string(to));
    if (!target) return target.error();
    auto driver = driver_of_path(*source);
    if (!driver) return driver.error();
    const JournalBatch batch;
    return batch.allowed() ? (*driver)->copy(*source, *target) : batch.allowed();
}

Result<void> move_file(std::string_view from, std::string_view to) {
    auto source = absolute_path(std::string(from));
    if (!source) return source.error();
    auto target = absolute_path(std::string(to));
    if (!target) return target.error();
    auto driver = driver_of_path(*source);
    if (!driver) return driver.error();
    const JournalBatch batch;
    return batch.allowed() ? (*driver)->move(*source, *target) : batch.allowed();
}

Result<std::uint64_t> check_file(std::string_view path, const CheckReport &report) {
    auto absolute = absolute_path(std::string(path));
    if (!absolute) return absolute.error();
    auto driver = driver_of_path(*absolute);
    if (!driver) return driver.error();
    return (*driver)->check(*absolute, report);
}

}  // namespace velda::store
