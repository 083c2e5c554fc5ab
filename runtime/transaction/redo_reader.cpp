// Reading a redo record. Its bytes are trusted in nothing until the checksum is found right, and are kept within after.
#include <cerrno>
#include <cstring>

#include "runtime/journal/record_crc.h"
#include "runtime/transaction/redo_record.h"

namespace velda::transaction {
namespace {

Error damaged(std::string_view what) { return {EBADMSG, "the redo record is damaged: " + std::string(what)}; }

// Takes one part after the other off the front of the bytes; once one is missing, all are.
class Parts {
  public:
    explicit Parts(std::string_view bytes) : bytes_(bytes) {}

    template <class Header>
    Header header() {
        Header taken{};
        const std::string_view part = text(sizeof taken);
        if (!part.empty()) std::memcpy(&taken, part.data(), sizeof taken);
        return taken;
    }
    std::string_view text(std::size_t size_bytes) {
        if (size_bytes > bytes_.size()) {
            is_short_ = true;
            bytes_ = {};
            return {};
        }
        const std::string_view part = bytes_.substr(0, size_bytes);
        bytes_.remove_prefix(size_bytes);
        return part;
    }
    std::optional<std::string_view> record(std::uint32_t size_bytes) {
        if (size_bytes == NoRecord) return std::nullopt;
        return text(size_bytes);
    }
    bool is_short() const { return is_short_; }
    std::size_t size() const { return bytes_.size(); }

  private:
    std::string_view bytes_;
    bool is_short_ = false;
};

RedoUpdate take_update(Parts &parts) {
    const auto header = parts.header<UpdateHeader>();
    RedoUpdate update;
    update.key = parts.text(header.key_bytes);
    update.record = parts.record(header.record_bytes);
    update.before = parts.record(header.before_bytes);
    return update;
}

Result<RedoBatch> take_batch(Parts &parts) {
    const auto header = parts.header<BatchHeader>();
    if (header.mode > static_cast<std::uint8_t>(store::TransferMode::Binary))
        return damaged("a mode that does not exist");
    RedoBatch batch;
    batch.file = {header.device, header.inode};
    batch.path = parts.text(header.path_bytes);
    batch.mode = static_cast<store::TransferMode>(header.mode);
    batch.is_journalled = header.is_journalled != 0;
    batch.is_lazy = header.is_lazy != 0;
    for (std::uint32_t i = 0; i < header.updates && !parts.is_short(); ++i) batch.updates.push_back(take_update(parts));
    return batch;
}

bool has_checksum(std::string_view bytes, std::uint32_t checksum) {
    return journal::crc32c(0, bytes.data(), bytes.size()) == checksum;
}

Result<RedoHeader> checked_header(std::string_view bytes) {
    RedoHeader header;
    if (bytes.size() < sizeof header) return damaged("it is cut short");
    std::memcpy(&header, bytes.data(), sizeof header);
    if (std::string_view(header.magic, sizeof header.magic) != RedoMagic) return damaged("it does not begin as one");
    if (header.size_bytes != bytes.size()) return damaged("its length is another one");
    if (!has_checksum(bytes.substr(0, sizeof header).substr(ChecksummedFrom), header.checksum) ||
        !has_checksum(bytes.substr(sizeof header), header.body_checksum))
        return damaged("its checksum is wrong");
    return header;
}

}  // namespace

Result<Redo> parse_redo(std::string_view bytes) {
    const auto header = checked_header(bytes);
    if (!header) return header.error();
    Redo redo{*header, {}};
    Parts parts(bytes.substr(sizeof(RedoHeader)));
    for (std::uint32_t i = 0; i < header->batches && !parts.is_short(); ++i) {
        auto batch = take_batch(parts);
        if (!batch) return batch.error();
        redo.batches.push_back(std::move(*batch));
    }
    if (parts.is_short()) return damaged("it is cut short");
    if (parts.size() != 0) return damaged("it is too long");
    return redo;
}

}  // namespace velda::transaction
