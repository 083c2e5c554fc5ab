// mounted_disk.h - a disk of few bytes, for tests of what happens when it is full.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace velda::test {

// Mounted over a directory, which is made, until the end of the scope. An ordinary user mounts it in a namespace of the
// process's own, which the system grants only to a process of one thread: false where it does not.
class MountedDisk {
  public:
    MountedDisk(std::string directory, const std::string &size) : directory_(std::move(directory)) {
        std::filesystem::create_directories(directory_);
        is_mounted_ = (geteuid() == 0 || enter_namespace()) &&
                      mount("velda-test", directory_.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
    }
    ~MountedDisk() {
        if (is_mounted_) umount2(directory_.c_str(), MNT_DETACH);
    }
    MountedDisk(const MountedDisk &) = delete;
    MountedDisk &operator=(const MountedDisk &) = delete;

    explicit operator bool() const { return is_mounted_; }

  private:
    static bool enter_namespace() {
        const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << user + " " + user + " 1";
        std::ofstream("/proc/self/gid_map") << group + " " + group + " 1";
        return true;
    }

    const std::string directory_;
    bool is_mounted_ = false;
};

}  // namespace velda::test
