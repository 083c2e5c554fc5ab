// facade.h - the dialect's words for files, records and select lists.
//
//   File orders;
//   if (!orders.open("ORDERS")) stop("201", "ORDERS");
//   if (auto order = orders.read_locked(key)) {
//       order.record(3) = "SHIPPED";
//       order.write();
//   }
//   for (const VAR &key : orders.select()) ...
//
// They work on the calling thread's context. A failure without a result here ends the command with a message, as the
// entries of file.h tell.
#ifndef VELDA_RUNTIME_FILE_FACADE_H
#define VELDA_RUNTIME_FILE_FACADE_H

#include <optional>
#include <utility>

#include "runtime/file/file.h"
#include "runtime/value/value.h"

extern "C" VELDA_EXPORT DP *velda_getdp(void);

namespace velda {

// A read under the record's lock. The lock stays until write(), remove() or release(), whatever becomes of this object:
// also when there is no such record, so that a new one can be written under it. The file's cell must outlive it.
class LockedRecord {
  public:
    VAR record;  // "" when there is none

    // True when the record exists and was read under its lock.
    explicit operator bool() const { return result_ == 1; }
    // True when another session holds the lock: nothing was read and nothing is held.
    bool busy() const { return result_ == 2; }
    // The port of that session.
    int holder_port() const { return busy() ? static_cast<int>(setting_.to_integer()) : -1; }

    // Each of these writes, and all but write_keeping_lock() end the lock.
    void write() { write_with(0); }
    void write_keeping_lock() { write_with(VELDA_WRITE_KEEP_LOCK); }
    void remove() { VLibFNEWDELETE_IIBBB(velda_getdp(), 0, file_, &key_, nullptr); }
    void release() { VLibFRELEASE_IBB(velda_getdp(), file_, &key_); }

  private:
    friend class FileWords;
    LockedRecord(const VAR *file, const Argument &key, int flags) : file_(file), key_(*key) {
        result_ = VLibFNEWREAD_IIBBBIB(velda_getdp(), flags, file_, &record, &key_, 0, &setting_);
    }
    void write_with(int flags) { VLibFNEWWRITE_IIBBBIB(velda_getdp(), flags, file_, &record, &key_, 0, nullptr); }

    const VAR *file_;
    VAR key_;
    VAR setting_;
    int result_ = 0;
};

// A select list. Copies name the same list.
class SelectList {
  public:
    SelectList() = default;
    // From a dynamic array of keys, a list cell, or a file cell.
    explicit SelectList(const Argument &source) { VLibFSELECT_IBBB(velda_getdp(), source, &cell_, nullptr); }

    // The active default list, which is used up by this; empty when none is active.
    static SelectList take_default() {
        SelectList list;
        list.cell_ = std::exchange(*VLibReturnDefaultSelect(velda_getdp()), VAR(""));
        return list;
    }
    // The saved list of that name; false when there is none.
    bool get_saved(const Argument &name) { return VLibFREADLIST_IBBB(velda_getdp(), &cell_, name, nullptr) == 1; }

    // READNEXT: false at the end, with "" in `key`.
    bool next(VAR &key) { return VLibFREADNEXT_IBBBBB(velda_getdp(), &key, nullptr, nullptr, &cell_, nullptr) == 1; }
    // Makes it the list that the next command takes.
    void make_default() { VLibFSELECT_IBBB(velda_getdp(), &cell_, nullptr, nullptr); }

    VAR &cell() { return cell_; }

    // for (const VAR &key : list): takes the keys from the list as it goes.
    class Iterator {
      public:
        explicit Iterator(SelectList *list) : list_(list) { ++*this; }
        const VAR &operator*() const { return key_; }
        Iterator &operator++() {
            if (list_ && !list_->next(key_)) list_ = nullptr;
            return *this;
        }
        bool operator!=(const Iterator &other) const { return list_ != other.list_; }

      private:
        SelectList *list_;
        VAR key_;
    };
    Iterator begin() { return Iterator(this); }
    Iterator end() { return Iterator(nullptr); }

  private:
    VAR cell_;
};

// Length of the active default list: SYSTEM(11).
inline int default_list_length() { return VRunCountDefaultSel(velda_getdp()); }

// The words of an open file, over a file cell that lies elsewhere.
class FileWords {
  public:
    explicit FileWords(VAR &cell) : cell_(&cell) {}

    // OPEN. The reason of a failure is SYSTEM(0).
    bool open(const Argument &name, bool dictionary = false) {
        const VAR selector = dictionary ? VAR("DICT") : VAR("");
        return VLibFNEWOPEN_IIBBBB(velda_getdp(), 0, &selector, name, cell_, nullptr) == 1;
    }
    bool is_open() const { return cell_->is_file(); }
    void close() { VLibFCLOSE_IB(velda_getdp(), cell_); }

    // READ. nullopt when there is no such record.
    std::optional<VAR> read(const Argument &key) const {
        std::optional<VAR> record(std::in_place);
        if (read_into(*record, key) != 1) record.reset();
        return record;
    }
    // READ ... ELSE record = "".
    bool read(VAR &record, const Argument &key) const { return read_into(record, key) == 1; }
    // The same, where a record that cannot be read counts as none. The reason is SYSTEM(0).
    bool try_read(VAR &record, const Argument &key) const { return read_into(record, key, VELDA_REPORT_ERRORS) == 1; }
    // One attribute; "" when there is no such record.
    VAR read_attribute(const Argument &key, int attribute) const {
        VAR value;
        VLibFNEWREAD_IIBBBIB(velda_getdp(), VELDA_ONE_ATTRIBUTE, cell_, &value, key, attribute, nullptr);
        return value;
    }
    bool exists(const Argument &key) const {
        VAR record;
        return read_into(record, key) == 1;
    }
    // READU: waits for the lock, or is busy() at once.
    LockedRecord read_locked(const Argument &key) const { return LockedRecord(cell_, key, VELDA_READ_LOCK); }
    LockedRecord try_read_locked(const Argument &key) const { return LockedRecord(cell_, key, VELDA_READ_LOCK_NOWAIT); }

    // WRITE, WRITEU, DELETE, CLEARFILE, RELEASE.
    void write(const Argument &key, const Argument &record) { write_with(0, key, record); }
    void write_keeping_lock(const Argument &key, const Argument &record) {
        write_with(VELDA_WRITE_KEEP_LOCK, key, record);
    }
    void write_attribute(const Argument &key, int attribute, const Argument &value) {
        VLibFNEWWRITE_IIBBBIB(velda_getdp(), VELDA_ONE_ATTRIBUTE, cell_, value, key, attribute, nullptr);
    }
    // WRITE that tells of a failure: 0, or its code (VELDA_ERROR_PERMISSION, 28 disk full ...).
    int try_write(const Argument &key, const Argument &record) {
        VAR code;
        const int result = VLibFNEWWRITE_IIBBBIB(velda_getdp(), VELDA_REPORT_ERRORS, cell_, record, key, 0, &code);
        return result == 1 ? 0 : static_cast<int>(code.to_integer());
    }
    void remove(const Argument &key) { VLibFNEWDELETE_IIBBB(velda_getdp(), 0, cell_, key, nullptr); }
    void clear() { VLibFNEWCLEARFILE_IIBB(velda_getdp(), 0, cell_, nullptr); }
    void release(const Argument &key) { VLibFRELEASE_IBB(velda_getdp(), cell_, key); }
    void release_all() { VLibFRELEASE_IBB(velda_getdp(), cell_, nullptr); }

    SelectList select() const { return SelectList(*cell_); }

    // IOCTL 9 ("RB", "RB,WB", "RT,WT") and 10.
    bool set_mode(const Argument &mode) {
        VAR text(*mode);
        return VLibFIOCTL_IBBB(velda_getdp(), cell_, Argument(static_cast<int>(VELDA_IOCTL_MODE)), &text) == 1;
    }
    VAR status() const {
        VAR result;
        VLibFSTATUS_IBBB(velda_getdp(), &result, cell_, nullptr);
        return result;
    }
    VAR full_path() const {
        VAR path;
        VELDAGetFilenameFromVar(velda_getdp(), cell_, &path);
        return path;
    }

    VAR &cell() const { return *cell_; }

  protected:
    VAR *cell_;

  private:
    int read_into(VAR &record, const Argument &key, int flags = 0) const {
        return VLibFNEWREAD_IIBBBIB(velda_getdp(), flags, cell_, &record, key, 0, nullptr);
    }
    void write_with(int flags, const Argument &key, const Argument &record) {
        VLibFNEWWRITE_IIBBBIB(velda_getdp(), flags, cell_, record, key, 0, nullptr);
    }
};

// A file variable: FileWords over a cell of its own. A copy shares the open file.
class File : public FileWords {
  public:
    File() : FileWords(own_) {}
    File(const File &other) : FileWords(own_), own_(other.own_) {}
    File &operator=(const File &other) {
        own_ = other.own_;
        return *this;
    }

  private:
    VAR own_;
};

// A copy of many records between two files, or to other keys of one: reads and updates as those of FileWords, made in
// batches. flush() makes those that wait; one that is not called is made up for at the end, also of a command that breaks
// off.
class BulkCopy {
  public:
    enum class Source { Stays, Moves };  // records that move are read under their locks
    BulkCopy(const FileWords &source, const FileWords &target, Source then = Source::Stays)
        : copy_(velda_bulk_copy_begin(velda_getdp(), &source.cell(), &target.cell(), then == Source::Moves)) {}
    ~BulkCopy() { velda_bulk_copy_end(copy_); }
    BulkCopy(const BulkCopy &) = delete;
    BulkCopy &operator=(const BulkCopy &) = delete;

    bool read(VAR &record, const Argument &key) { return velda_bulk_copy_read(copy_, &record, key) == 1; }
    // READNEXT and READ together: false at the end. `found` tells whether there is such a record.
    bool next(SelectList &list, VAR &key, VAR &record, bool &found) {
        const int result = velda_bulk_copy_next(copy_, &list.cell(), &key, &record);
        found = result == VELDA_BULK_COPY_RECORD;
        return result != VELDA_BULK_COPY_END;
    }
    bool target_has(const Argument &key) { return velda_bulk_copy_target_has(copy_, key) != 0; }
    void write(const Argument &key, const Argument &record) { velda_bulk_copy_write(copy_, key, record); }
    void remove_source(const Argument &key) { velda_bulk_copy_remove(copy_, key); }
    void flush() { velda_bulk_copy_flush(copy_); }

  private:
    VELDABulkCopy *copy_;
};

// CREATE-FILE and DELETE-FILE with their operands, one an attribute; nullopt when done, else the message.
inline std::optional<VAR> create_file(const Argument &operands) {
    VAR message;
    if (velda_create_file(velda_getdp(), operands, &message) == 1) return std::nullopt;
    return message;
}
inline std::optional<VAR> delete_file(const Argument &operands) {
    VAR message;
    if (velda_delete_file(velda_getdp(), operands, &message) == 1) return std::nullopt;
    return message;
}

// DIR(path): size, date, time and kind; "" when there is nothing of that name.
inline VAR directory_entry(const Argument &path) {
    VAR details;
    VLibEDIR_BBB(velda_getdp(), &details, path);
    return details;
}

// A key that no other call gives.
inline VAR unique_key() {
    VAR key;
    VLibEUNIQUEKEY_BB(velda_getdp(), &key);
    return key;
}

}  // namespace velda

#endif
