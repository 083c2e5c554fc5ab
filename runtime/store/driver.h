// driver.h - the interface that every file driver stands behind. Private to the runtime.
//
// A database file is named by a path; what the path means is the driver's business (a local LMDB environment, a local
// directory, later a table on a server), so nothing here assumes a local path, a map in memory or a local lock. Keys
// are 0 to 65,536 bytes, records up to 1 GiB. All calls may be made from any thread; an OpenFile is shared by all cells
// of the process that hold the file open.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"

namespace velda::store {

inline constexpr std::size_t MaxKeyBytes = 65536;
inline constexpr std::size_t MaxRecordBytes = std::size_t{1} << 30;

// Error numbers that a caller reacts to, beside the plain ones (2 absent, 13 no permission, 16 in use elsewhere,
// 17 exists, 22 invalid name or key, 27 record too large, 28 disk full, 30 read-only disk).
inline constexpr int NeedsCheck = 117;  // the file is damaged, or was not closed before a power loss: CHECK-FILE tells

// How much a returned update survives.
enum class Durability {
    Sync,  // power loss
    Lazy   // the death of any process; the disk is synced every few seconds
};

// Settings kept in the file itself, given when it is made and shown by its status.
struct FileSettings {
    Durability durability = Durability::Sync;
    bool journalled = true;            // LOG=NO clears it
    int permissions = 0666;            // mode bits of the file, before the process mask
    std::vector<std::string> options;  // other driver options as given, such as "-L", "-T"
    bool operator==(const FileSettings &) const = default;
};

// What the lock table and reports know a file by: the same for every process that opens it, whatever path it used.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const FileIdentity &) const = default;
};

struct FileStatus {
    std::string type;  // "UD" directory, "HL" hashed
    std::string path;  // absolute path
    FileSettings settings;
    std::uint64_t records = 0;
    std::uint64_t size_bytes = 0;    // on disk
    std::vector<std::string> flags;  // words for reports, such as "read-only"
};

// Where a read puts its record: the driver asks for room and writes the bytes there, so a record is copied once. A
// driver that finds the record changed under it asks again; the last call counts.
class RecordBuffer {
  public:
    virtual ~RecordBuffer() = default;
    virtual char *prepare(std::size_t size_bytes) = 0;
};

// A RecordBuffer over a std::string.
class StringBuffer : public RecordBuffer {
  public:
    explicit StringBuffer(std::string &target) : target_(target) {}
    char *prepare(std::size_t size_bytes) override {
        target_.resize(size_bytes);
        return target_.data();
    }

  private:
    std::string &target_;
};

// How a driver that keeps records as plain files (the directory driver) writes attributes: as lines (Text, its default)
// or unchanged (Binary). Others keep every record unchanged and ignore it.
enum class TransferMode { Default, Text, Binary };

// A walk over all keys, in the driver's order. It holds no snapshot between calls that could hinder writers. A record
// written or deleted during the walk may or may not be seen, and may be seen as it was a moment before; every other
// record is seen exactly once.
class Cursor {
  public:
    virtual ~Cursor() = default;
    // The next key; nullopt at the end. The view is valid until the next call.
    virtual Result<std::optional<std::string_view>> next_key() = 0;
    // The next key with its record, as views into the cursor's buffers, valid until the next call.
    struct Item {
        std::string_view key;
        std::string_view record;
    };
    virtual Result<std::optional<Item>> next_item() = 0;
};

// One change of a batch. `record` absent means delete.
struct Update {
    std::string_view key;
    std::optional<std::string_view> record;
};

class OpenFile {
  public:
    virtual ~OpenFile() = default;

    virtual FileIdentity identity() const = 0;
    virtual std::string_view type() const = 0;  // "HL", "UD"
    virtual std::string_view path() const = 0;  // absolute, as it was when the file was opened
    virtual bool writable() const = 0;          // false: permissions allow reading only, updates give error 13

    // True and the record in `into`, false when there is no such record.
    virtual Result<bool> read(std::string_view key, RecordBuffer &into, TransferMode mode) = 0;
    virtual Result<bool> exists(std::string_view key) = 0;
    virtual Result<void> write(std::string_view key, std::string_view record, TransferMode mode) = 0;
    // False when there was no such record.
    virtual Result<bool> remove(std::string_view key) = 0;
    // All changes in one commit where the driver has commits; in order. Bulk work calls this with a thousand at a time.
    virtual Result<void> apply(const std::vector<Update> &updates, TransferMode mode) = 0;
    // Whether apply() makes all changes or none, also when the process dies at any instant.
    virtual bool applies_whole() const = 0;
    // A record that is written in one mode as a read in another one gives it back.
    virtual std::string as_read(std::string_view record, TransferMode, TransferMode) const {
        return std::string(record);
    }
    virtual Result<void> clear() = 0;
    virtual Result<std::unique_ptr<Cursor>> select(TransferMode mode) = 0;

    // Small system blocks kept beside the records, by number.
    virtual Result<std::optional<std::string>> control_read(std::uint32_t number) = 0;
    virtual Result<void> control_write(std::uint32_t number, std::string_view block) = 0;
    virtual Result<bool> control_remove(std::uint32_t number) = 0;

    virtual Result<FileStatus> status() = 0;
    // The settings alone, without the counting that status() does.
    virtual Result<FileSettings> settings() = 0;
    // A change of durability needs the file to itself: error 16 when another process has it open.
    virtual Result<void> change_settings(const FileSettings &settings) = 0;
    // Makes every returned update durable now.
    virtual Result<void> sync() = 0;
    // The process is about to end with the file open: does what the last close would do for the disk.
    virtual void finish() {}
};

// Damage found by a check: one line a finding, naming where.
using CheckReport = std::function<void(std::string_view finding)>;

// `path` is always absolute, with symbolic links of its directories resolved.
class Driver {
  public:
    virtual ~Driver() = default;
    virtual std::string_view type() const = 0;
    // True when `path` is a file of this driver, damaged or not.
    virtual bool recognises(const std::string &path) = 0;
    virtual Result<void> create(const std::string &path, const FileSettings &settings) = 0;
    virtual Result<std::unique_ptr<OpenFile>> open(const std::string &path) = 0;
    virtual Result<void> destroy(const std::string &path) = 0;
    virtual Result<void> copy(const std::string &from, const std::string &to) = 0;
    virtual Result<void> move(const std::string &from, const std::string &to) = 0;
    // Walks everything, reports each fault; the number of records that could be read. A clean walk lets a file be
    // opened again that was not closed before a power loss.
    virtual Result<std::uint64_t> check(const std::string &path, const CheckReport &report) = 0;
};

// --- the registry: one road from a database file name to an OpenFile ---

// The section of a database file that a name means. "NAME" -> data, "NAME,SECTION", or the dictionary.
struct FileName {
    std::string path;  // as the driver opens it: NAME, NAME]D, NAME]SECTION, "." and so on
};

// Parses a file name as the statements take it: a leading "DICT " (any case) or `dictionary` selects NAME]D, "DATA " is
// dropped, "NAME,SECTION" selects NAME]SECTION (NAME,NAME is the data section), backslashes are path separators. A name
// that already ends in "]D" is that dictionary. Error 22 for an empty name or one with a zero byte.
Result<FileName> parse_file_name(std::string_view name, bool dictionary);

// Opens a path. A path that this process already has open is shared: well below 2 microseconds, no system call but at
// most one. Error 2 when there is no such file, 22 when what is there is not a database file, NeedsCheck when it is
// damaged or was not closed before a power loss.
Result<std::shared_ptr<OpenFile>> open_file(std::string_view path);

// Makes a file of a driver's type ("HL" or "UD"). Error 17 when the path exists.
Result<void> create_file(std::string_view path, std::string_view type, const FileSettings &settings);
// Removes a file. It may be open elsewhere: those handles fail at their next use or stay on the removed file until they
// close; nothing is corrupted.
Result<void> destroy_file(std::string_view path);
Result<void> copy_file(std::string_view from, std::string_view to);
Result<void> move_file(std::string_view from, std::string_view to);
Result<std::uint64_t> check_file(std::string_view path, const CheckReport &report);

// Calls `visit` for every file that this process has open.
void for_each_open_file(const std::function<void(OpenFile &)> &visit);

// Lets go of the snapshots that reads keep for a few milliseconds to make the next read faster. Anything that may wait
// long (terminal input, sleep, a wait for a lock, the run of another program) calls this first, so that writers can
// reuse pages at once; a forgotten call costs nothing but some growth of a file that is being written meanwhile.
void release_snapshots();

}  // namespace velda::store
