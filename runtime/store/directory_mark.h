// directory_mark.h - the mark of a lazy directory: whether updates may not be on disk, and since which boot.
//
// The hidden file ".velda-mark" holds one number: 0 when everything is on disk, else the boot in which updates were
// made. Every writer holds a share of a lock on it; the last one to leave syncs the disk and clears it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <shared_mutex>
#include <string>

#include "runtime/base/result.h"
#include "runtime/store/path.h"

namespace velda::store {

class DirectoryMark {
  public:
    // `directory` stays the caller's and open.
    DirectoryMark(int directory, std::string path) : directory_(directory), path_(std::move(path)) {}
    ~DirectoryMark() { (void)leave_clean(); }
    DirectoryMark(const DirectoryMark &) = delete;
    DirectoryMark &operator=(const DirectoryMark &) = delete;

    // NeedsCheck when another boot left the directory marked. A mark that a process of this boot left when it was killed
    // becomes this one's to clear.
    Result<void> check();
    // One update. Before it the disk knows of it; after it the disk is synced when the last time is some seconds ago.
    class Update {
      public:
        Update(DirectoryMark &mark, bool lazy);
        ~Update();
        Update(const Update &) = delete;
        Update &operator=(const Update &) = delete;
        const Result<void> &allowed() const { return allowed_; }

      private:
        DirectoryMark &mark_;
        std::shared_lock<std::shared_mutex> lock_;
        Result<void> allowed_;
    };
    // Puts every update on disk now, and clears the mark when no other process is writing.
    Result<void> leave_clean();
    // After a clean check: the directory may be used again.
    Result<void> clear();

  private:
    Result<void> enter();
    void sync_when_due();

    int directory_;
    std::string path_;
    std::shared_mutex mutex_;           // shared by updates; alone for whoever sets or clears the mark
    std::unique_ptr<Descriptor> mark_;  // open while this process has made updates
    std::atomic<pid_t> entered_{0};     // the process that did; a forked child enters for itself
    std::atomic<std::chrono::steady_clock::rep> last_sync_{0};
};

}  // namespace velda::store
