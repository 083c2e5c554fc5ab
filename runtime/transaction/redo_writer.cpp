// Writing a redo record: whole, under another name, then renamed.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "runtime/base/global_directory.h"
#include "runtime/base/write_fully.h"
#include "runtime/journal/record_crc.h"
#include "runtime/store/boot_id.h"
#include "runtime/store/path.h"
#include "runtime/transaction/redo_record.h"
#include "runtime/transaction/steps.h"

namespace velda::transaction {
namespace {

using store::Descriptor;

std::string directory_of(const std::string &path) { return std::filesystem::path(path).parent_path().string(); }

int sync_file(int file) {
    death_point();
    if (const int refused = refusal()) return refused;
    return fdatasync(file) == 0 ? 0 : errno;
}

int sync_directory_of(const std::string &path) {
    death_point();
    if (const int refused = refusal()) return refused;
    const Descriptor directory(open(directory_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.number() >= 0 && fsync(directory.number()) == 0 ? 0 : errno;
}

template <class Header>
std::string_view bytes_of(const Header &header) {
    return {reinterpret_cast<const char *>(&header), sizeof header};
}

std::uint32_t size_of(const std::optional<std::string_view> &record) {
    return record ? static_cast<std::uint32_t>(record->size()) : NoRecord;
}

// Puts a record together and hands it to the disk: in one piece if it is small, with its header in front, whose size
// and checksums are known last.
class Writer {
  public:
    explicit Writer(int file) : file_(file) {
        buffer_.reserve(BufferBytes);
        buffer_.resize(sizeof(RedoHeader));
    }

    void add(std::string_view bytes) {
        checksum_ = journal::crc32c(checksum_, bytes.data(), bytes.size());
        if (buffer_.size() + bytes.size() > BufferBytes) flush();
        if (bytes.size() > BufferBytes)
            put(bytes);
        else
            buffer_ += bytes;
    }

    // 0, or the error number of the first write that failed.
    int finish(RedoHeader header) {
        header.size_bytes = size_bytes_ + buffer_.size();
        header.body_checksum = checksum_;
        const std::string_view covered = bytes_of(header).substr(ChecksummedFrom);
        header.checksum = journal::crc32c(0, covered.data(), covered.size());
        const bool in_one_piece = size_bytes_ == 0;
        if (in_one_piece) buffer_.replace(0, sizeof header, bytes_of(header));
        flush();
        if (error_ == 0 && !in_one_piece && lseek(file_, 0, SEEK_SET) != 0) error_ = errno;
        if (!in_one_piece) put(bytes_of(header));
        return error_;
    }

  private:
    static constexpr std::size_t BufferBytes = 64 * 1024;

    void flush() {
        put(buffer_);
        buffer_.clear();
    }
    void put(std::string_view bytes) {
        if (error_ != 0 || bytes.empty()) return;
        death_point();
        error_ = refusal();
        if (error_ == 0) error_ = write_fully(file_, bytes);
        size_bytes_ += bytes.size();
    }

    const int file_;
    std::string buffer_;
    int error_ = 0;
    std::uint32_t checksum_ = 0;
    std::uint64_t size_bytes_ = 0;  // handed to the disk
};

// The records are locked by the transaction, so what is read here stays until the updates are made.
Result<void> add_batch(Writer &writer, const Batch &batch) {
    const std::string_view path = batch.file->path();
    const store::FileIdentity identity = batch.file->identity();
    writer.add(bytes_of(BatchHeader{identity.device,
                                    identity.inode,
                                    static_cast<std::uint32_t>(path.size()),
                                    static_cast<std::uint32_t>(batch.updates.size()),
                                    static_cast<std::uint8_t>(batch.mode),
                                    batch.is_journalled,
                                    batch.is_lazy,
                                    {}}));
    writer.add(path);
    std::string before;
    for (const store::Update &update : batch.updates) {
        store::StringBuffer buffer(before);
        const auto found = batch.file->read(update.key, buffer, store::TransferMode::Binary);
        if (!found) return found.error();
        writer.add(bytes_of(UpdateHeader{static_cast<std::uint32_t>(update.key.size()), size_of(update.record),
                                         *found ? static_cast<std::uint32_t>(before.size()) : NoRecord}));
        writer.add(update.key);
        if (update.record) writer.add(*update.record);
        if (*found) writer.add(before);
    }
    return {};
}

RedoHeader header_of(std::span<const Batch> batches, const RedoFile &redo) {
    RedoHeader header{};
    RedoMagic.copy(header.magic, sizeof header.magic);
    header.boot = store::current_boot();
    header.progress = redo.progress;
    header.is_durable = redo.is_durable;
    header.batches = static_cast<std::uint32_t>(batches.size());
    return header;
}

Result<void> add_batches(Writer &writer, std::span<const Batch> batches) {
    for (const Batch &batch : batches)
        if (auto added = add_batch(writer, batch); !added) return added;
    return {};
}

Result<void> write_new_file(const std::string &path, std::span<const Batch> batches, const RedoFile &redo) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (file.number() < 0) return system_error(errno, "cannot make redo record", path);
    share_like_directory(file.number(), directory_of(path));
    death_point();
    Writer writer(file.number());
    if (auto added = add_batches(writer, batches); !added) return added;
    int error = writer.finish(header_of(batches, redo));
    death_point();
    if (error == 0 && redo.is_durable) error = sync_file(file.number());
    if (error != 0) return system_error(error, "cannot write redo record", path);
    return {};
}

}  // namespace

Result<void> write_redo(const RedoFile &redo, std::span<const Batch> batches) {
    const std::string unfinished = redo.path + std::string(UnfinishedEnding);
    auto written = write_new_file(unfinished, batches, redo);
    if (!written) {
        unlink(unfinished.c_str());
        return written;
    }
    death_point();
    int error = refusal();
    if (error == 0 && rename(unfinished.c_str(), redo.path.c_str()) != 0) error = errno;
    if (error != 0) unlink(unfinished.c_str());
    death_point();
    if (error == 0 && redo.is_durable) {
        error = sync_directory_of(redo.path);
        if (error != 0) unlink(redo.path.c_str());
    }
    if (error != 0) return system_error(error, "cannot put redo record in place", redo.path);
    return {};
}

Result<void> store_progress(const RedoFile &redo) {
    death_point();
    const Descriptor file(open(redo.path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
    if (file.number() < 0) return system_error(errno, "cannot open redo record", redo.path);
    const ssize_t put = pwrite(file.number(), &redo.progress, sizeof redo.progress, offsetof(RedoHeader, progress));
    if (put != static_cast<ssize_t>(sizeof redo.progress))
        return system_error(put < 0 ? errno : EIO, "cannot change redo record", redo.path);
    if (redo.is_durable && fdatasync(file.number()) != 0)
        return system_error(errno, "cannot change redo record", redo.path);
    death_point();
    return {};
}

Result<void> remove_redo(const RedoFile &redo) {
    death_point();
    if (unlink(redo.path.c_str()) != 0 && errno != ENOENT)
        return system_error(errno, "cannot remove redo record", redo.path);
    death_point();
    if (const int error = redo.is_durable ? sync_directory_of(redo.path) : 0)
        return system_error(error, "cannot remove redo record", redo.path);
    return {};
}

}  // namespace velda::transaction
