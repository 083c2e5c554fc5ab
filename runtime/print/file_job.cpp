// file_job.cpp - a print job as a file.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <charconv>

#include "runtime/base/write_fully.h"
#include "runtime/print/job.h"

namespace velda {
namespace {

constexpr std::size_t BufferBytes = 64 * 1024;
constexpr std::string_view Unfinished = ".part";
constexpr std::string_view Finished = ".prn";
constexpr mode_t JobPermissions = 0640;

class FileJob : public PrintJob {
  public:
    FileJob(int file, std::string path) : file_(file), path_(std::move(path)) {}
    ~FileJob() override {
        if (file_ >= 0) close(file_);
    }

    Result<void> write(std::string_view bytes) override {
        if (file_ < 0) return {};
        buffer_ += bytes;
        return buffer_.size() < BufferBytes ? Result<void>() : send();
    }

    Result<void> finish() override {
        if (file_ < 0) return {};
        if (auto sent = send(); !sent) return sent;
        const int closed = close(file_);
        file_ = -1;
        if (closed != 0) return failure("cannot write print job");
        const std::string unfinished = path_ + std::string(Unfinished);
        if (rename(unfinished.c_str(), (path_ + std::string(Finished)).c_str()) != 0)
            return failure("cannot complete print job");
        return {};
    }

  private:
    Result<void> send() {
        const int error = write_fully(file_, buffer_);
        buffer_.clear();
        if (error == 0) return {};
        close(file_);
        file_ = -1;
        errno = error;
        return failure("cannot write print job");
    }
    Error failure(std::string_view what) const { return system_error(errno, what, path_ + std::string(Unfinished)); }

    int file_;          // -1 when it takes no more
    std::string path_;  // without ending
    std::string buffer_;
};

// The number in a name of the form STEM, number, ending; 0 for any other name.
int job_number(std::string_view name, std::string_view stem) {
    if (!name.starts_with(stem)) return 0;
    name.remove_prefix(stem.size());
    int number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    const std::string_view ending(end, static_cast<std::size_t>(name.data() + name.size() - end));
    return error == std::errc() && (ending == Unfinished || ending == Finished) ? number : 0;
}

int highest_job_number(const std::string &directory, const std::string &stem) {
    int highest = 0;
    DIR *const entries = opendir(directory.c_str());
    if (!entries) return 0;
    while (const dirent *entry = readdir(entries)) highest = std::max(highest, job_number(entry->d_name, stem));
    closedir(entries);
    return highest;
}

}  // namespace

Result<std::unique_ptr<PrintJob>> begin_file_job(const std::string &directory, const PrintJobOwner &owner) {
    const std::string stem = std::to_string(owner.port) + "-" + std::to_string(owner.unit) + "-";
    int number = highest_job_number(directory, stem);
    while (true) {
        const std::string path = directory + "/" + stem + std::to_string(++number);
        const std::string unfinished = path + std::string(Unfinished);
        const int file = open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, JobPermissions);
        if (file < 0 && errno != EEXIST) return system_error(errno, "cannot make print job", unfinished);
        if (file < 0) continue;
        // Another process may have finished a job of this number since the directory was read.
        if (access((path + std::string(Finished)).c_str(), F_OK) != 0)
            return std::unique_ptr<PrintJob>(std::make_unique<FileJob>(file, path));
        close(file);
        unlink(unfinished.c_str());
    }
}

}  // namespace velda
