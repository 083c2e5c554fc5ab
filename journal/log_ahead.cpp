#include "journal/log_ahead.h"

#include <cerrno>
#include <utility>

namespace velda::journal {

ReadAhead::~ReadAhead() {
    {
        const std::lock_guard lock(mutex_);
        is_ending_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void ReadAhead::read(AheadFile &file, AheadFile::Piece &piece, int64_t offset) const {
    size_t got = 0;
    piece.bytes.resize(static_cast<size_t>(piece_bytes_));
    const int error = VRunFileIORead(dp_, file.handle_, offset, piece.bytes.data(), piece.bytes.size(), &got);
    piece.begin = offset;
    piece.size = static_cast<int64_t>(got);
    piece.error = error == ENODATA ? 0 : error;
}

void ReadAhead::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return is_ending_ || !wanted_.empty(); });
        if (is_ending_) return;
        AheadFile &file = *wanted_.front();
        lock.unlock();
        read(file, file.next_, file.next_.begin);
        lock.lock();
        wanted_.erase(wanted_.begin());
        file.is_wanted_ = false;
        changed_.notify_all();
    }
}

void ReadAhead::request(AheadFile &file, int64_t offset) {
    const std::lock_guard lock(mutex_);
    if (!thread_.joinable()) thread_ = std::thread(&ReadAhead::work, this);
    file.next_.begin = offset;
    file.is_wanted_ = true;
    wanted_.push_back(&file);
    changed_.notify_all();
}

void ReadAhead::wait_for(AheadFile &file) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&file] { return !file.is_wanted_; });
}

const unsigned char *ReadAhead::bytes_at(AheadFile &file, int64_t offset, int64_t count, int64_t *there) {
    AheadFile::Piece &piece = file.used_;
    const auto holds = [&] { return offset >= piece.begin && offset + count <= piece.begin + piece.size; };
    if (!holds()) {
        wait_for(file);
        if (file.next_.size > 0 && file.next_.begin == offset)
            std::swap(file.used_, file.next_);
        else
            read(file, piece, offset);
        if (piece.size == piece_bytes_) request(file, piece.begin + piece.size);
    }
    *there = std::max<int64_t>(piece.begin + piece.size - offset, 0);
    if (piece.error == 0) return piece.bytes.data() + (offset - piece.begin);
    errno = piece.error;
    return nullptr;
}

void ReadAhead::forget(AheadFile &file) {
    wait_for(file);
    file.used_.size = file.next_.size = 0;
}

}  // namespace velda::journal
