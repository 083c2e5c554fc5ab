// The driver layer's entries for records, control records, selections and scans.
#include <cerrno>
#include <cstring>
#include <vector>

#include "runtime/memory/memory.h"
#include "runtime/store/journalling.h"
#include "runtime/store/vedi_call.h"
#include "runtime/transaction/session_file.h"

namespace velda::store {
namespace {

constexpr char Module[] = "vedi";

TransferMode mode_of(uint32_t flags, TransferMode otherwise) {
    return flags & VEDI_BINARY ? TransferMode::Binary : otherwise;
}

// A record read straight into the caller's buffer, or into a larger one that takes its place.
class CallerBuffer : public RecordBuffer {
  public:
    CallerBuffer(DP *dp, char **buffer, uint32_t *buffer_size) : dp_(dp), buffer_(buffer), buffer_size_(buffer_size) {}

    char *prepare(std::size_t size_bytes) override {
        if (!*buffer_ || size_bytes + 1 > *buffer_size_) grow(size_bytes + 1);
        size_ = static_cast<uint32_t>(size_bytes);
        (*buffer_)[size_bytes] = '\0';
        return *buffer_;
    }
    uint32_t size() const { return size_; }

  private:
    void grow(std::size_t size_bytes) {
        void *const larger = VELDArealloc(dp_, *buffer_, size_bytes, Module, __LINE__);
        if (!larger) throw std::bad_alloc();
        *buffer_ = static_cast<char *>(larger);
        *buffer_size_ = static_cast<uint32_t>(size_bytes);
    }

    DP *dp_;
    char **buffer_;
    uint32_t *buffer_size_;
    uint32_t size_ = 0;
};

Error no_record() { return {VEDI_NO_RECORD, "there is no such record"}; }

}  // namespace
}  // namespace velda::store

struct VediSelection {
    std::unique_ptr<velda::store::Cursor> cursor;
};

struct VediScan {
    std::unique_ptr<velda::store::Cursor> cursor;
    bool keys_only;
};

using namespace velda::store;

int VediReadRecord(DP *dp, VediControlBlock *file, uint32_t flags, const char *key, uint32_t key_length, char **buffer,
                   uint32_t *buffer_size, uint32_t *record_size) {
    return call_on(dp, file, [&](ControlBlockContent &content) -> velda::Result<void> {
        CallerBuffer into(dp, buffer, buffer_size);
        try {
            auto found = velda::transaction::read_record(dp, content, bytes_of(key, key_length), into,
                                                         mode_of(flags, content.read_mode));
            if (!found) return found.error();
            if (!*found) return no_record();
        } catch (const std::bad_alloc &) {
            return velda::Error{ENOMEM, "there is no memory for the record"};
        }
        if (record_size) *record_size = into.size();
        return {};
    });
}

int VediWriteRecord(DP *dp, VediControlBlock *file, uint32_t flags, const char *key, uint32_t key_length,
                    const char *data, uint32_t size, uint32_t value) {
    return call_on(dp, file, [&](ControlBlockContent &content) {
        const UpdateScope scope(dp, true, flags, value);
        return velda::transaction::write_record(dp, content, bytes_of(key, key_length), bytes_of(data, size),
                                                mode_of(flags, content.write_mode));
    });
}

int VediDeleteRecord(DP *dp, VediControlBlock *file, uint32_t flags, const char *key, uint32_t key_length) {
    return call_on(dp, file, [&](ControlBlockContent &content) -> velda::Result<void> {
        const UpdateScope scope(dp, true, flags, 0);
        auto removed = velda::transaction::remove_record(dp, content, bytes_of(key, key_length));
        if (!removed) return removed.error();
        if (!*removed) return velda::Error{ENOENT, no_record().message};
        return {};
    });
}

int velda_apply_updates(DP *dp, VediControlBlock *file, uint32_t flags, const VELDAUpdate *updates, uint32_t count) {
    return call_on(dp, file, [&](ControlBlockContent &content) {
        std::vector<Update> changes(count);
        for (uint32_t i = 0; i < count; ++i) {
            changes[i].key = bytes_of(updates[i].key, updates[i].key_length);
            if (updates[i].data) changes[i].record = bytes_of(updates[i].data, updates[i].size);
        }
        const UpdateScope scope(dp, true, flags, 0);
        return velda::transaction::apply_updates(dp, content, changes, mode_of(flags, content.write_mode));
    });
}

int velda_applies_whole(VediControlBlock *file) { return is_open(file) && content_of(*file).file->applies_whole(); }

// --- control records ---

int VediControlRead(DP *dp, VediControlBlock *file, uint32_t number, char **block, uint32_t *size) {
    return call_on(dp, file, [&](ControlBlockContent &content) -> velda::Result<void> {
        auto found = content.file->control_read(number);
        if (!found) return found.error();
        if (!*found) return velda::Error{ENOENT, "there is no control record " + std::to_string(number)};
        const std::string &bytes = **found;
        *block = static_cast<char *>(VELDAmalloc_readrecord(dp, bytes.size(), Module, __LINE__));
        if (!*block) return velda::Error{ENOMEM, "there is no memory for the control record"};
        std::memcpy(*block, bytes.data(), bytes.size());
        *size = static_cast<uint32_t>(bytes.size());
        return {};
    });
}

int VediControlWrite(DP *dp, VediControlBlock *file, uint32_t number, const char *block, uint32_t size) {
    return call_on(dp, file, [&](ControlBlockContent &content) {
        return content.file->control_write(number, bytes_of(block, size));
    });
}

int VediControlDelete(DP *dp, VediControlBlock *file, uint32_t number) {
    return call_on(dp, file, [&](ControlBlockContent &content) -> velda::Result<void> {
        auto removed = content.file->control_remove(number);
        if (!removed) return removed.error();
        if (!*removed) return velda::Error{ENOENT, "there is no control record " + std::to_string(number)};
        return {};
    });
}

// --- selections and scans ---

int VediSelect(DP *dp, VediControlBlock *file, VediSelection **selection) {
    *selection = nullptr;
    return call_on(dp, file, [&](ControlBlockContent &content) -> velda::Result<void> {
        auto cursor = velda::transaction::select_records(dp, content, content.read_mode);
        if (!cursor) return cursor.error();
        *selection = new VediSelection{std::move(*cursor)};
        return {};
    });
}

int VediReadnext(DP *dp, VediControlBlock *, VediSelection *selection, const char **key, uint32_t *key_length) {
    if (!selection) return fail_call(dp, {EINVAL, "there is no selection"});
    auto next = selection->cursor->next_key();
    if (!next) return fail_call(dp, next.error());
    if (!*next) return VEDI_NO_RECORD;
    *key = (*next)->data();
    *key_length = static_cast<uint32_t>((*next)->size());
    return 0;
}

int VediSelectEnd(DP *, VediControlBlock *, VediSelection *selection) {
    delete selection;
    return 0;
}

int VediScanfileInit(DP *dp, VediControlBlock *file, int flags, int mode, VediScan **scan) {
    *scan = nullptr;
    return call_on(dp, file, [&](ControlBlockContent &content) -> velda::Result<void> {
        auto cursor =
            velda::transaction::select_records(dp, content, mode == 1 ? TransferMode::Binary : content.read_mode);
        if (!cursor) return cursor.error();
        *scan = new VediScan{std::move(*cursor), (flags & VEDI_SCAN_KEYS_ONLY) != 0};
        return {};
    });
}

namespace {

void hand_out(std::string_view bytes, const char **address, uint32_t *length) {
    if (address) *address = bytes.data();
    if (length) *length = static_cast<uint32_t>(bytes.size());
}

}  // namespace

int VediScanfileRead(DP *dp, VediScan *scan, const char **key, uint32_t *key_length, const char **record,
                     uint32_t *record_length) {
    if (!scan) return fail_call(dp, {EINVAL, "there is no scan"});
    if (scan->keys_only) {
        auto next = scan->cursor->next_key();
        if (!next) return fail_call(dp, next.error());
        if (!*next) return VEDI_NO_RECORD;
        hand_out(**next, key, key_length);
        hand_out({}, record, record_length);
        return 0;
    }
    auto next = scan->cursor->next_item();
    if (!next) return fail_call(dp, next.error());
    if (!*next) return VEDI_NO_RECORD;
    hand_out((*next)->key, key, key_length);
    hand_out((*next)->record, record, record_length);
    return 0;
}

int VediScanfileEnd(DP *, VediScan *scan) {
    delete scan;
    return 0;
}
