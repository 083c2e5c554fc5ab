#include "runtime/transaction/held_updates.h"

#include <cerrno>

namespace velda::transaction {
namespace {

// Beside key and record: the nodes that hold them.
constexpr std::size_t UpdateOverheadBytes = 128;

std::size_t size_of(std::string_view key, const HeldUpdate &update) {
    return UpdateOverheadBytes + key.size() + (update.record ? update.record->size() : 0);
}

Error too_large() {
    return {EFBIG, "the transaction would hold more than " + std::to_string(MaxHeldBytes >> 20) +
                       " MiB: end it and make the rest in another one"};
}

}  // namespace

HeldFile *HeldUpdates::file_of(const store::FileIdentity &file) const {
    for (const auto &held : files_)
        if (held->file->identity() == file) return held.get();
    return nullptr;
}

std::shared_ptr<HeldFile> HeldUpdates::find(const store::FileIdentity &file) const {
    for (const auto &held : files_)
        if (held->file->identity() == file) return held;
    return nullptr;
}

Result<void> HeldUpdates::hold(const std::shared_ptr<store::OpenFile> &file, std::string_view key, HeldUpdate update) {
    HeldFile *held = file_of(file->identity());
    const HeldUpdate *const before = held ? held->find(key) : nullptr;
    const std::size_t size_bytes = size_bytes_ - (before ? size_of(key, *before) : 0) + size_of(key, update);
    if (size_bytes > MaxHeldBytes) return too_large();
    if (!held) held = files_.emplace_back(std::make_shared<HeldFile>(file)).get();
    update.order = next_order_++;
    held->updates.insert_or_assign(std::string(key), std::move(update));
    size_bytes_ = size_bytes;
    return {};
}

std::string as_read(const store::OpenFile &file, const HeldUpdate &update, store::TransferMode read_mode) {
    return file.as_read(*update.record, update.mode, read_mode);
}

}  // namespace velda::transaction
