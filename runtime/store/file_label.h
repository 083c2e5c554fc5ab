// file_label.h - the label of a hashed file: a few words in the unused part of its first page.
//
// LMDB keeps a meta block at the start of page 0 and never touches the rest of that page. What must be known before
// LMDB may open the file stands there: that it is a database file at all, with which durability (all processes must
// open it with the same flags), which lock file its users share, and whether a lazy file was in use when the machine
// last stopped. Whether it is journalled stands there too, since every update asks for it. The file's other settings are ordinary records of its control database.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "runtime/base/result.h"
#include "runtime/store/driver.h"
#include "runtime/store/lmdb_format.h"

namespace velda::store {

inline constexpr std::uint64_t LabelMagic = 0x31304C48414C4556ULL;  // "VELAHL01" in file order
inline constexpr std::size_t LabelOffset = 1024;

// Where the journal stood when a change was about to be told of. The change came about when its transaction is
// committed; when the next one has the same number, it did not.
struct JournalledChange {
    std::uint64_t transaction;
    std::int64_t use;     // which use of which set
    std::uint64_t begin;  // in its stream: its records stand behind this
    std::uint64_t end;    // and in front of this; 0: not known
    bool operator==(const JournalledChange &) const = default;
};

struct FileLabel {
    std::uint64_t magic;
    std::uint32_t version;
    std::uint32_t durability;  // 0 sync, 1 lazy
    std::uint64_t
        unclean_boot;  // 0: every update is on disk; else the boot in which updates may have been left unwritten
    std::uint64_t lock_inode;      // the lock file that the present users share; meaningless when there are none
    std::uint64_t not_journalled;  // 1: changes stay out of the journal
    JournalledChange journalled;   // the last change that was journalled; written in the file's write turn
};
static_assert(sizeof(FileLabel) == 72 && offsetof(FileLabel, unclean_boot) == 16 &&
              offsetof(FileLabel, lock_inode) == 24 && offsetof(FileLabel, not_journalled) == 32);
static_assert(LabelOffset >= sizeof(lmdb::MetaPage) && LabelOffset % 512 == 0,
              "clear of the meta block, inside one sector");

inline constexpr std::uint32_t LabelVersion = 1;

// What the first two pages say, checked: roots of the trees within the file, the page size, known versions. The last
// page that is in use may lie behind the end of the file (LMDB does not write pages that were freed by the transaction
// that took them), so a file that is too short is told apart only by a walk of its trees.
struct FileHead {
    FileLabel label;
    lmdb::MetaBody metas[lmdb::MetaPages];
    std::uint64_t size_bytes;

    const lmdb::MetaBody &newest() const { return metas[metas[1].transaction > metas[0].transaction]; }
    // The state that a transaction left; null when newer ones have overwritten it.
    const lmdb::MetaBody *state_of(std::uint64_t transaction) const {
        for (const auto &meta : metas)
            if (meta.transaction == transaction) return &meta;
        return nullptr;
    }
};

// Reads and checks the head of the file open as `descriptor`. The error names `path` and what is wrong: 22 when this is
// no database file, NeedsCheck when it is a damaged one.
Result<FileHead> read_file_head(int descriptor, const std::string &path);

// True when `descriptor` looks like a database file, damaged or not.
bool has_file_label(int descriptor);

// Writes a new label; the caller has the file to itself.
Result<void> write_file_label(int descriptor, Durability durability, bool journalled, const std::string &path);

// The label of an open file, mapped: the words that change while the file is open are read and written in place, each
// by one atomic access.
class MappedLabel {
  public:
    MappedLabel() = default;
    ~MappedLabel() { unmap(); }
    MappedLabel(const MappedLabel &) = delete;
    MappedLabel &operator=(const MappedLabel &) = delete;

    Result<void> map(int descriptor, bool writable, const std::string &path);
    void unmap();

    bool is_mapped() const { return label_ != nullptr; }
    std::uint64_t unclean_boot() const { return word(label_->unclean_boot).load(std::memory_order_acquire); }
    void set_unclean_boot(std::uint64_t boot) { word(label_->unclean_boot).store(boot, std::memory_order_release); }
    std::uint64_t lock_inode() const { return word(label_->lock_inode).load(std::memory_order_acquire); }
    void set_lock_inode(std::uint64_t inode) { word(label_->lock_inode).store(inode, std::memory_order_release); }
    bool is_journalled() const { return word(label_->not_journalled).load(std::memory_order_relaxed) == 0; }
    void set_journalled(bool journalled) { word(label_->not_journalled).store(journalled ? 0 : 1); }
    JournalledChange &journalled() const { return label_->journalled; }
    void set_durability(Durability durability) { label_->durability = static_cast<std::uint32_t>(durability); }

  private:
    static std::atomic_ref<std::uint64_t> word(std::uint64_t &value) { return std::atomic_ref<std::uint64_t>(value); }

    void *page_ = nullptr;
    FileLabel *label_ = nullptr;
};

}  // namespace velda::store
