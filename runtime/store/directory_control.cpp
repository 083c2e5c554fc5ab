#include "runtime/store/directory_control.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "runtime/store/atomic_file.h"
#include "runtime/store/directory_file.h"

namespace velda::store {
namespace {

constexpr std::string_view Magic = "VELDAUD1";

void append_length(std::string &bytes, std::size_t length) {
    const auto value = static_cast<std::uint32_t>(length);
    bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
}

bool take_length(std::string_view &bytes, std::size_t &length) {
    std::uint32_t value;
    if (bytes.size() < sizeof value) return false;
    std::memcpy(&value, bytes.data(), sizeof value);
    bytes.remove_prefix(sizeof value);
    length = value;
    return true;
}

}  // namespace

std::string control_block_name(unsigned number) { return "C" + std::to_string(number); }

bool parse_control_blocks(std::string_view bytes, ControlBlocks &blocks) {
    if (!bytes.starts_with(Magic)) return false;
    bytes.remove_prefix(Magic.size());
    while (!bytes.empty()) {
        std::size_t name_bytes, content_bytes;
        if (!take_length(bytes, name_bytes) || !take_length(bytes, content_bytes)) return false;
        if (name_bytes > bytes.size() || content_bytes > bytes.size() - name_bytes) return false;
        blocks[std::string(bytes.substr(0, name_bytes))] = bytes.substr(name_bytes, content_bytes);
        bytes.remove_prefix(name_bytes + content_bytes);
    }
    return true;
}

Result<ControlBlocks> read_control_blocks(int directory, const std::string &path) {
    ControlBlocks blocks;
    std::string bytes;
    StringBuffer buffer(bytes);
    const int rc = read_whole_file(directory, std::string(ControlFileName), buffer);
    if (rc == ENOENT) return blocks;
    const std::string name = path + "/" + std::string(ControlFileName);
    if (rc) return system_error(rc, "cannot read", name);
    if (!parse_control_blocks(bytes, blocks))
        return Error{NeedsCheck, "control file '" + name + "' is damaged; restore it"};
    return blocks;
}

Result<void> write_control_blocks(int directory, const ControlBlocks &blocks, const std::string &path) {
    const std::string name(ControlFileName);
    int rc = 0;
    if (blocks.empty()) {
        if (unlinkat(directory, name.c_str(), 0) < 0 && errno != ENOENT) rc = errno;
    } else {
        std::string bytes(Magic);
        for (const auto &[block, content] : blocks) {
            append_length(bytes, block.size());
            append_length(bytes, content.size());
            bytes.append(block).append(content);
        }
        rc = replace_file(directory, name, bytes, {.mode = 0666, .keep_mode = true, .durable = true});
    }
    if (rc) return system_error(rc, "cannot write", path + "/" + name);
    return {};
}

}  // namespace velda::store
