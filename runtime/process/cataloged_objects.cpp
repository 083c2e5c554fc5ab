#include "runtime/process/cataloged_objects.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>
#include <vector>

namespace velda {
namespace {

namespace fs = std::filesystem;

// When a directory last changed: a new, removed or replaced entry moves it.
struct ChangeTime {
    timespec time{};
    bool operator==(const ChangeTime &other) const {
        return time.tv_sec == other.time.tv_sec && time.tv_nsec == other.time.tv_nsec;
    }
};

// Loaded objects stay loaded: a subroutine of theirs may be running.
class ObjectDirectory {
  public:
    void refresh(const std::string &path) {
        struct stat status;
        if (stat(path.c_str(), &status) != 0) {
            objects_.clear();
            read_at_ = {};
            return;
        }
        const ChangeTime changed{status.st_mtim};
        if (changed == read_at_) return;
        load_all(path);
        read_at_ = changed;
    }

    VELDASubroutine find(const char *symbol) const {
        for (void *object : objects_)
            if (void *address = dlsym(object, symbol)) return reinterpret_cast<VELDASubroutine>(address);
        return nullptr;
    }

  private:
    void load_all(const std::string &path) {
        std::vector<std::string> names;
        std::error_code unreadable;
        for (const auto &entry : fs::directory_iterator(path, unreadable))
            if (entry.path().extension() == ".so") names.push_back(entry.path().string());
        std::sort(names.begin(), names.end());
        objects_.clear();
        for (const std::string &name : names) {
            if (void *object = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL))
                objects_.push_back(object);
            else
                std::fprintf(stderr, "cannot load '%s': %s\n", name.c_str(), dlerror());
        }
    }

    std::vector<void *> objects_;
    ChangeTime read_at_;
};

std::mutex directories_mutex;
std::map<std::string, ObjectDirectory, std::less<>> &directories() {
    static std::map<std::string, ObjectDirectory, std::less<>> known;
    return known;
}

}  // namespace

VELDASubroutine find_cataloged_symbol(const std::string &symbol) {
    const char *list = std::getenv("VBCDEV_LIB");
    if (!list) return nullptr;
    const std::lock_guard guard(directories_mutex);
    for (std::string_view rest = list; !rest.empty();) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        const std::string path(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (path.empty()) continue;
        ObjectDirectory &directory = directories()[path];
        directory.refresh(path);
        if (const auto address = directory.find(symbol.c_str())) return address;
    }
    return nullptr;
}

}  // namespace velda
