// redo_record.h - a transaction that is being committed, as it stands on disk until all its updates are made. Private to
// the folder.
//
// A redo record is one file in the directory "transactions" of the system, SEGMENT-OWNER.redo: the lock table's segment
// and the owner in it whose commit it is. It is written whole with ".new" behind its name, and then renamed: that is the
// instant in which the transaction is committed. It holds every update, and what each record was before. A file that is
// damaged or cut was never a whole record, so what it tells was never committed.
//
//   RedoHeader   then for each batch   BatchHeader path   then for each update   UpdateHeader key record before
//
// Numbers are the machine's own: a record never leaves the machine that wrote it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/result.h"
#include "runtime/store/driver.h"

namespace velda::transaction {

inline constexpr std::string_view RedoMagic = "VELDARD1";

// How far the commit has come. It is set in place, so the checksum does not cover it.
struct RedoProgress {
    std::uint32_t state;       // RedoState bits
    std::int32_t journal_pid;  // who has begun the transaction in the journal
    std::int32_t journal_port;
    std::uint32_t taken_back;  // how many batches, from the first on, RollsBack concerns
};
enum RedoState : std::uint32_t {
    RollsBack = 1,     // the updates are being taken back
    JournalBegun = 2,  // the journal may hold the begin of the transaction
    AllMade = 4        // nothing is left to be done
};

struct RedoHeader {
    char magic[8];
    RedoProgress progress;
    std::uint32_t checksum;       // CRC-32C of the header behind it
    std::uint32_t body_checksum;  // CRC-32C of all that follows the header
    std::uint64_t size_bytes;
    std::uint64_t boot;
    std::uint32_t is_durable;  // 1: the record was on the disk before the first update was made
    std::uint32_t batches;
};
static_assert(sizeof(RedoHeader) == 56 && offsetof(RedoHeader, progress) == 8 && offsetof(RedoHeader, checksum) == 24);
inline constexpr std::size_t ChecksummedFrom = offsetof(RedoHeader, body_checksum);

struct BatchHeader {
    std::uint64_t device;
    std::uint64_t inode;
    std::uint32_t path_bytes;
    std::uint32_t updates;
    std::uint8_t mode;  // store::TransferMode
    std::uint8_t is_journalled;
    std::uint8_t is_lazy;
    std::uint8_t reserved[5];
};
static_assert(sizeof(BatchHeader) == 32);

inline constexpr std::uint32_t NoRecord = 0xFFFFFFFF;

struct UpdateHeader {
    std::uint32_t key_bytes;
    std::uint32_t record_bytes;  // NoRecord: the update deletes
    std::uint32_t before_bytes;  // NoRecord: there was none
};
static_assert(sizeof(UpdateHeader) == 12);

// A record as it is read: views into its bytes.
struct RedoUpdate {
    std::string_view key;
    std::optional<std::string_view> record;
    std::optional<std::string_view> before;  // as the file holds it, for a write in binary mode
};

struct RedoBatch {
    std::string_view path;
    store::FileIdentity file;
    store::TransferMode mode = store::TransferMode::Default;
    bool is_journalled = true;
    bool is_lazy = false;
    std::vector<RedoUpdate> updates;
};

struct Redo {
    RedoHeader header;
    std::vector<RedoBatch> batches;
};

// Reads a record; an error when the bytes are no whole record.
Result<Redo> parse_redo(std::string_view bytes);

// Updates that one call of a file's driver makes.
struct Batch {
    store::OpenFile *file = nullptr;  // null: it is left out
    store::TransferMode mode = store::TransferMode::Default;
    bool is_journalled = true;
    bool is_lazy = false;
    std::vector<store::Update> updates;
};

// A record on disk that is being carried out.
struct RedoFile {
    std::string path;
    bool is_durable = false;  // a file of durability `sync` is among those of the transaction
    RedoProgress progress{};
};

// Writes the record of `batches`, with what the files hold of each record now. When this
// returns without error the transaction is committed, and on the disk if it is durable. On an error nothing is left.
Result<void> write_redo(const RedoFile &redo, std::span<const Batch> batches);

// Stores the progress in the record; on the disk when it returns, if it is durable. It needs no room on the disk.
Result<void> store_progress(const RedoFile &redo);

// Removes the record: nothing is left to be done. Its absence is on the disk, if it was durable.
Result<void> remove_redo(const RedoFile &redo);

inline constexpr std::string_view RedoEnding = ".redo";
inline constexpr std::string_view UnfinishedEnding = ".new";

}  // namespace velda::transaction
