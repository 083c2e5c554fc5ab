// log_ahead.h - pieces of a file read one ahead of their use, by a thread beside the one that looks at them. Private to
// the subsystem.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "journal/logger_context.h"

namespace velda::journal {

// A file, opened for this use alone, and two pieces of it: the one in use, and the next.
class AheadFile {
  public:
    explicit AheadFile(VRunFile *handle) : handle_(handle) {}

    VRunFile *handle() const { return handle_; }

  private:
    friend class ReadAhead;
    struct Piece {
        std::vector<unsigned char> bytes;
        int64_t begin = 0, size = 0;
        int error = 0;
    };
    VRunFile *handle_;
    Piece used_, next_;
    bool is_wanted_ = false;  // the thread has yet to fill `next_`
};

class ReadAhead {
  public:
    ReadAhead(DP *dp, int64_t piece_bytes) : dp_(dp), piece_bytes_(piece_bytes) {}
    ~ReadAhead();
    ReadAhead(const ReadAhead &) = delete;
    ReadAhead &operator=(const ReadAhead &) = delete;

    // The bytes of a file from an offset on, `count` at least unless it ends before; they stay until the next call for
    // the file. `*there` is how many there are. Null and errno when the file cannot be read.
    const unsigned char *bytes_at(AheadFile &file, int64_t offset, int64_t count, int64_t *there);

    // What was read is read again.
    void forget(AheadFile &file);

  private:
    void read(AheadFile &file, AheadFile::Piece &piece, int64_t offset) const;
    void request(AheadFile &file, int64_t offset);
    void wait_for(AheadFile &file);
    void work();

    DP *dp_;
    const int64_t piece_bytes_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<AheadFile *> wanted_;  // in the order asked for
    bool is_ending_ = false;
    std::thread thread_;
};

}  // namespace velda::journal
