// registration.h - how the processes of a system find their lock table. Private to the folder.
//
// The table must not wait for a disk, so its segment lies in memory: in /dev/shm, or in the directory that the
// environment variable VELDALOCKDIR names. The registration is a small file of the system that holds the segment's
// path. Who uses the table keeps the registration locked shared (flock), which ends with the process; so who can lock
// it alone knows that nobody uses the table, and makes a new one: an old one may be left over from before a reboot,
// from another version, or be damaged, and has nothing worth keeping. All of that happens while the directory of the
// registration is locked.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "runtime/lock/segment.h"

namespace velda::lock {

class Registration {
  public:
    // Registers this process at the file `path`, which is made when it is missing, in an existing directory.
    static Result<std::unique_ptr<Registration>> attach(const std::string &path);
    ~Registration();
    Registration(const Registration &) = delete;
    Registration &operator=(const Registration &) = delete;

    Segment &segment() const { return *segment_; }
    const std::string &path() const { return path_; }

    // Removes segment and registration if nobody else uses them and no owner lives. The segment stays mapped. A forked
    // child leaves nothing: it has not attached.
    void leave();

  private:
    explicit Registration(std::string path) : path_(std::move(path)) {}
    Result<void> open_file();
    Result<void> find_segment();
    Result<void> join_users(Result<std::unique_ptr<Segment>> found);
    Result<void> make_segment(Result<std::unique_ptr<Segment>> found);
    Result<void> register_name(const std::string &name);
    std::string directory() const;

    std::string path_;
    int file_ = -1;
    std::unique_ptr<Segment> segment_;
    pid_t attached_by_ = 0;
};

}  // namespace velda::lock
