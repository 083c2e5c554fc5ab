// driver.h - the interface that every file driver stands behind. Private to the runtime.
//
// A database file is named by a path; what the path means is the driver's business (a local LMDB environment, a local
// directory, later a table on a server), so nothing here assumes a local path, a map in memory or a local lock. Keys are
// 1 to 65,536 bytes, records up to 1 GiB. All calls may be made from any thread; an OpenFile is shared by all cells
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

// How much a returned update survives.
enum class Durability {
    Sync,  // power loss
    Lazy   // the death of any process; the disk is synced every few seconds
};

// Settings kept in the file itself, given when it is made and shown by its status.
struct FileSettings {
    Durability durability = Durability::Sync;
    bool journalled = true;        // LOG=NO clears it
    int permissions = 0666;        // mode bits of the file, before the process mask
    std::vector<std::string> options;  // other driver options as given, such as "-L", "-T"
};

// What the lock table and reports know a file by: the same for every process that opens it, whatever path it used.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const FileIdentity &) const = default;
};

struct FileStatus {
    std::string type;              // "UD" directory, "HL" hashed
    std::string path;              // absolute path
    FileSettings settings;
    std::uint64_t records = 0;
    std::uint64_t size_bytes = 0;  // on disk
    std::vector<std::string> flags;  // words for reports, such as "needs check"
};

// Where a read puts its record: the driver asks once for room and writes the bytes there, so a record is copied once.
class RecordBuffer {
  public:
    virtual ~RecordBuffer() = default;
    virtual char *prepare(std::size_t size_bytes) = 0;
};

// How RTxx/RBxx modes read and write records of a driver that knows text (the directory driver); others ignore it.
enum class TransferMode { Default, Text, Binary };

// A walk over all keys, in the driver's order. It holds no snapshot between calls that could hinder writers: a record
// written or deleted during the walk may or may not be seen, every other record is seen exactly once.
class Cursor {
  public:
    virtual ~Cursor() = default;
    // The next key; nullopt at the end. The view is valid until the next call.
    virtual Result<std::optional<std::string_view>> next_key() = 0;
    // The next key with its record, as views into the driver's buffers, valid until the next call.
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
    virtual std::string_view type() const = 0;   // "HL", "UD"
    virtual std::string_view path() const = 0;   // absolute

    // True and the record in `into`, false when there is no such record.
    virtual Result<bool> read(std::string_view key, RecordBuffer &into, TransferMode mode) = 0;
    virtual Result<bool> exists(std::string_view key) = 0;
    virtual Result<void> write(std::string_view key, std::string_view record, TransferMode mode) = 0;
    // False when there was no such record.
    virtual Result<bool> remove(std::string_view key) = 0;
    // All changes in one commit where the driver has commits; in order. Bulk work calls this with some hundred at a time.
    virtual Result<void> apply(const std::vector<Update> &updates, TransferMode mode) = 0;
    virtual Result<void> clear() = 0;
    virtual Result<std::unique_ptr<Cursor>> select(TransferMode mode) = 0;

    // Small system blocks kept beside the records, by number.
    virtual Result<std::optional<std::string>> control_read(std::uint32_t number) = 0;
    virtual Result<void> control_write(std::uint32_t number, std::string_view block) = 0;
    virtual Result<bool> control_remove(std::uint32_t number) = 0;

    virtual Result<FileStatus> status() = 0;
    virtual Result<void> change_settings(const FileSettings &settings) = 0;
    // Makes every returned update durable now.
    virtual Result<void> sync() = 0;
};

// Damage found by a check: one line a finding, naming where.
using CheckReport = std::function<void(std::string_view finding)>;

class Driver {
  public:
    virtual ~Driver() = default;
    virtual std::string_view type() const = 0;
    // True when `path` is a file of this driver.
    virtual bool recognises(std::string_view path) = 0;
    virtual Result<void> create(std::string_view path, const FileSettings &settings) = 0;
    virtual Result<std::unique_ptr<OpenFile>> open(std::string_view path) = 0;
    virtual Result<void> destroy(std::string_view path) = 0;
    virtual Result<void> copy(std::string_view from, std::string_view to) = 0;
    virtual Result<void> move(std::string_view from, std::string_view to) = 0;
    // Walks everything, reports each fault; the number of records that could be read.
    virtual Result<std::uint64_t> check(std::string_view path, const CheckReport &report) = 0;
};

// --- the registry: one road from a database file name to an OpenFile -----------------------------------------------------

// The section of a database file that a name means. "NAME" -> data, "NAME,SECTION", or the dictionary.
struct FileName {
    std::string path;      // as the driver opens it: NAME, NAME]D, NAME]SECTION, "." and so on
};

// Parses a file name as the statements take it: a leading "DICT " (any case) or `dictionary` selects NAME]D, "DATA " is
// dropped, "NAME,SECTION" selects NAME]SECTION (NAME,NAME is the data section), backslashes are path separators.
Result<FileName> parse_file_name(std::string_view name, bool dictionary);

// Opens a path. A path that this process already has open is shared: well below 2 microseconds, no system call but at
// most one.
Result<std::shared_ptr<OpenFile>> open_file(std::string_view path);

// Makes a file of a driver's type ("HL" or "UD").
Result<void> create_file(std::string_view path, std::string_view type, const FileSettings &settings);
// Removes a file. It may be open elsewhere: those handles fail with error 116 (stale) at their next use or stay on the
// removed file until they close; nothing is corrupted.
Result<void> destroy_file(std::string_view path);
Result<void> copy_file(std::string_view from, std::string_view to);
Result<void> move_file(std::string_view from, std::string_view to);
Result<std::uint64_t> check_file(std::string_view path, const CheckReport &report);

// Calls `visit` for every file that this process has open.
void for_each_open_file(const std::function<void(OpenFile &)> &visit);

}  // namespace velda::store
