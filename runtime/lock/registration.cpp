#include "runtime/lock/registration.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "runtime/base/global_directory.h"

namespace velda::lock {

namespace {

constexpr std::string_view NamePrefix = "velda-lock-";
constexpr std::size_t NameDigits = 16;
// A segment without a header is still being made, unless it is older than this.
constexpr int MakingSeconds = 60;

// The only names under which a file is mapped as a segment or removed, whatever a registration or a header says.
bool is_segment_name(std::string_view name) {
    return name.size() == NamePrefix.size() + NameDigits && name.starts_with(NamePrefix) &&
           name.find_first_not_of("0123456789abcdef", NamePrefix.size()) == std::string_view::npos;
}

std::string memory_directory(const std::string &otherwise) {
    if (const char *named = getenv("VELDALOCKDIR"); named && *named) return named;
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : otherwise;
}

std::string new_segment_name() {
    std::uint64_t number = 0;
    while (getrandom(&number, sizeof number, 0) != sizeof number) {
    }
    char name[NamePrefix.size() + NameDigits + 1];
    snprintf(name, sizeof name, "%s%016llx", NamePrefix.data(), static_cast<unsigned long long>(number));
    return name;
}

// The segment's name that a registration holds, "" when it holds no such name.
std::string registered_name(int file) {
    char line[NamePrefix.size() + NameDigits + 1];
    const ssize_t size = pread(file, line, sizeof line, 0);
    if (size != static_cast<ssize_t>(sizeof line) || line[sizeof line - 1] != '\n') return "";
    const std::string name(line, sizeof line - 1);
    return is_segment_name(name) ? name : "";
}

// One process at a time looks for a system's segment, makes it or removes it.
class DirectoryTurn {
  public:
    explicit DirectoryTurn(const std::string &directory)
        : file_(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (file_ >= 0) lock_file(file_, LOCK_EX);
    }
    ~DirectoryTurn() {
        if (file_ >= 0) close(file_);
    }
    DirectoryTurn(const DirectoryTurn &) = delete;
    DirectoryTurn &operator=(const DirectoryTurn &) = delete;

  private:
    int file_;
};

// A descriptor that is closed at the end of its scope.
class OpenDescriptor {
  public:
    explicit OpenDescriptor(int file) : file_(file) {}
    ~OpenDescriptor() {
        if (file_ >= 0) close(file_);
    }
    OpenDescriptor(const OpenDescriptor &) = delete;
    OpenDescriptor &operator=(const OpenDescriptor &) = delete;
    int get() const { return file_; }

  private:
    int file_;
};

bool is_older_than(int file, int seconds) {
    struct stat status;
    return fstat(file, &status) == 0 && time(nullptr) - status.st_mtime > seconds;
}

std::string name_registered_at(const std::string &path) {
    // Anything may lie at that path by now, also what would block.
    const OpenDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    return file.get() < 0 ? "" : registered_name(file.get());
}

// Nobody maps the segment, and its system no longer names it: its directory was removed, or its maker died.
bool is_left_behind(const std::string &name, int file) {
    if (!lock_file(file, LOCK_EX | LOCK_NB)) return false;
    std::string header(sizeof(SegmentHeader), '\0');
    const bool whole = pread(file, header.data(), header.size(), 0) == static_cast<ssize_t>(header.size());
    std::uint64_t magic = 0;
    std::memcpy(&magic, header.data(), sizeof magic);
    if (!whole || magic == 0) return is_older_than(file, MakingSeconds);
    const char *registration = header.data() + offsetof(SegmentHeader, registered_in);
    return magic == SegmentMagic && name_registered_at(registration) != name;
}

// Systems that were removed with their directories, and processes that were killed, leave segments behind.
void sweep(const std::string &directory) {
    std::error_code failed;
    for (const auto &entry : std::filesystem::directory_iterator(directory, failed)) {
        const std::string name = entry.path().filename();
        if (!is_segment_name(name)) continue;
        const OpenDescriptor file(open(entry.path().c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (file.get() >= 0 && is_left_behind(name, file.get())) unlink(entry.path().c_str());
    }
}

}  // namespace

Result<std::unique_ptr<Registration>> Registration::attach(const std::string &path) {
    std::unique_ptr<Registration> registration(new Registration(path));
    const DirectoryTurn turn(registration->directory());
    if (auto opened = registration->open_file(); !opened) return opened.error();
    if (auto found = registration->find_segment(); !found) return found.error();
    if (!lock_file(registration->file_, LOCK_SH)) return system_error(errno, "cannot lock", path);
    registration->attached_by_ = getpid();
    return registration;
}

Registration::~Registration() {
    leave();
    if (file_ >= 0) close(file_);
}

std::string Registration::directory() const { return std::filesystem::path(path_).parent_path().string(); }

// A symbolic link counts as no registration: what it leads to is not ours.
Result<void> Registration::open_file() {
    file_ = open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (file_ >= 0 || errno == ENOENT || errno == ELOOP) return {};
    return system_error(errno, "cannot open lock table registration", path_);
}

Result<void> Registration::find_segment() {
    const std::string name = file_ < 0 ? "" : registered_name(file_);
    const bool in_use = file_ >= 0 && !lock_file(file_, LOCK_EX | LOCK_NB);
    auto found =
        name.empty()
            ? Result<std::unique_ptr<Segment>>(Error{ENOENT, "lock table registration '" + path_ + "' is damaged"})
            : Segment::open(memory_directory(directory()) + "/" + name);
    return in_use ? join_users(std::move(found)) : make_segment(std::move(found));
}

Result<void> Registration::join_users(Result<std::unique_ptr<Segment>> found) {
    if (!found)
        return Error{found.error().number, found.error().message + ", though '" + path_ +
                                               "' is in use: all users of a system must see one VELDALOCKDIR"};
    if (!(*found)->is_current())
        return Error{EBUSY,
                     "lock table '" + (*found)->path() + "' is in use by another version: end its sessions first"};
    segment_ = std::move(*found);
    return {};
}

// A process that closed all its descriptors has given up its lock of the registration, but not its life as an owner.
Result<void> Registration::make_segment(Result<std::unique_ptr<Segment>> found) {
    if (found && (*found)->is_current() && (*found)->anyone_lives()) {
        segment_ = std::move(*found);
        return {};
    }
    if (found && (*found)->is_table()) unlink((*found)->path().c_str());
    const std::string place = memory_directory(directory());
    const std::string name = new_segment_name();
    sweep(place);
    auto made = Segment::create(place + "/" + name, path_);
    if (!made) return made.error();
    segment_ = std::move(*made);
    return register_name(name);
}

// Always a new file: nothing is written into one that was found.
Result<void> Registration::register_name(const std::string &name) {
    if (file_ >= 0) close(file_);
    unlink(path_.c_str());
    file_ = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const std::string line = name + "\n";
    if (file_ >= 0 && write(file_, line.data(), line.size()) == static_cast<ssize_t>(line.size())) {
        share_like_directory(file_, directory());
        return {};
    }
    const int reason = errno;
    unlink(segment_->path().c_str());
    return system_error(reason, "cannot write lock table registration", path_);
}

void Registration::leave() {
    if (!segment_ || attached_by_ != getpid()) return;
    attached_by_ = 0;
    const DirectoryTurn turn(directory());
    const bool alone = segment_->give_up_use();
    if (!alone || segment_->anyone_lives()) return;
    const std::string segment_path = segment_->path();
    if (name_registered_at(path_) == std::filesystem::path(segment_path).filename()) unlink(path_.c_str());
    unlink(segment_path.c_str());
}

}  // namespace velda::lock
