// linked_file.cpp - blocks and link records of a linked file; rawio.h tells the format.
#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

#include "runtime/convert/convert.h"
#include "runtime/rawio/raw_file.h"

namespace velda::rawio {

void HeldFrame::show_content() {
    bytes = content.data();
    length = static_cast<uint32_t>(content.size());
}

namespace {

constexpr std::uint32_t SmallestBlock = 256, LargestBlock = 16 * 1024 * 1024;

// --- the formats ---------------------------------------------------------------------------------------------------

// In the head block of the file.
constexpr std::int64_t FreeListOffset = 156;
struct FreeList {
    char first[8];
    char count[4];
};
static_assert(sizeof(FreeList) == 12 && offsetof(FreeList, count) == 8);

// At the start of each block of a record. A free block has only `next`; its marker is zero.
struct BlockHead {
    char next[8];
    char record_length[4];
    char marker[4];
    char number[4];
    char reserved[32];
};
static_assert(sizeof(BlockHead) == 52);
static_assert(offsetof(BlockHead, record_length) == 8 && offsetof(BlockHead, marker) == 12 &&
              offsetof(BlockHead, number) == 16);

constexpr std::string_view Marker = "LINK";

Error damaged(const VRunFile &file, std::int64_t offset, std::string_view what) {
    return {EBADMSG, "'" + file.path + "' at offset " + std::to_string(offset) + ": " + std::string(what)};
}

std::uint32_t room_of_block(const VRunFile &file) { return file.block_size - sizeof(BlockHead); }

template <class Part>
Result<Part> read_part(const VRunFile &file, std::int64_t offset) {
    Part part;
    const auto got = file.read_at(offset, reinterpret_cast<char *>(&part), sizeof part);
    if (!got) return got.error();
    if (*got != sizeof part) return damaged(file, offset, "the file ends there");
    return part;
}

template <class Part>
Result<void> write_part(const VRunFile &file, std::int64_t offset, const Part &part) {
    return file.write_at(offset, {reinterpret_cast<const char *>(&part), sizeof part});
}

// A block lies on a block boundary behind the head block.
bool can_be_block(const VRunFile &file, std::int64_t offset) { return offset > 0 && offset % file.block_size == 0; }

// --- free blocks ---------------------------------------------------------------------------------------------------

// The head block, with an empty free list, comes with the first record.
Result<void> ensure_head(const VRunFile &file) {
    const auto size = file.size_bytes();
    if (!size) return size.error();
    if (*size >= file.block_size) return {};
    return file.write_at(*size, std::string(file.block_size - static_cast<std::size_t>(*size), '\0'));
}

Result<std::int64_t> append_block(const VRunFile &file) {
    const auto size = file.size_bytes();
    if (!size) return size.error();
    const std::int64_t offset = (*size + file.block_size - 1) / file.block_size * file.block_size;
    if (const auto written = file.write_at(offset, std::string(file.block_size, '\0')); !written)
        return written.error();
    return offset;
}

// A block for a record. It leaves the free list before it becomes part of anything.
Result<std::int64_t> take_block(const VRunFile &file) {
    auto list = read_part<FreeList>(file, FreeListOffset);
    if (!list) return list.error();
    const std::int64_t first = vgetlong64(list->first);
    if (first == 0) return append_block(file);
    if (!can_be_block(file, first)) return damaged(file, FreeListOffset, "the free list leads nowhere");
    const auto next = read_part<BlockHead>(file, first);
    if (!next) return next.error();
    std::memcpy(list->first, next->next, sizeof list->first);
    vputint32(list->count, vgetint32(list->count) - 1);
    if (const auto written = write_part(file, FreeListOffset, *list); !written) return written.error();
    return first;
}

// The block stops being part of a record before it enters the free list.
Result<void> give_back_block(const VRunFile &file, std::int64_t offset) {
    auto list = read_part<FreeList>(file, FreeListOffset);
    if (!list) return list.error();
    BlockHead head{};
    std::memcpy(head.next, list->first, sizeof head.next);
    if (auto written = write_part(file, offset, head); !written) return written;
    vputlong64(list->first, offset);
    vputint32(list->count, vgetint32(list->count) + 1);
    return write_part(file, FreeListOffset, *list);
}

// --- records -------------------------------------------------------------------------------------------------------

// Where the blocks of a record lie and how long it is.
struct Chain {
    std::vector<std::int64_t> blocks;
    std::uint32_t length = 0;
};

std::size_t blocks_for(const VRunFile &file, std::uint32_t length) {
    return (std::size_t{length} + room_of_block(file) - 1) / room_of_block(file);
}

Result<Chain> read_chain(const VRunFile &file, std::int64_t first) {
    Chain chain;
    std::int64_t offset = first;
    do {
        if (!can_be_block(file, offset)) return damaged(file, first, "the link record leads nowhere");
        const auto head = read_part<BlockHead>(file, offset);
        if (!head) return head.error();
        if (std::string_view(head->marker, sizeof head->marker) != Marker ||
            vgetint32(head->number) != static_cast<std::int32_t>(chain.blocks.size()))
            return damaged(file, offset, "no block of a link record");
        if (chain.blocks.empty()) chain.length = static_cast<std::uint32_t>(vgetint32(head->record_length));
        chain.blocks.push_back(offset);
        offset = vgetlong64(head->next);
    } while (offset != 0);
    if (chain.blocks.size() != blocks_for(file, chain.length))
        return damaged(file, first, "the link record has the wrong length");
    return chain;
}

Result<std::string> read_content(const VRunFile &file, const Chain &chain) {
    std::string content(chain.length, '\0');
    const std::uint32_t room = room_of_block(file);
    std::size_t at = 0;
    for (const std::int64_t block : chain.blocks) {
        const std::size_t part = std::min<std::size_t>(room, content.size() - at);
        const auto got = file.read_at(block + static_cast<std::int64_t>(sizeof(BlockHead)), content.data() + at, part);
        if (!got) return got.error();
        if (*got != part) return damaged(file, block, "the file ends there");
        at += part;
    }
    return content;
}

Result<void> write_block(const VRunFile &file, const Chain &chain, std::size_t number, std::string_view content) {
    const std::size_t start = number * room_of_block(file);
    BlockHead head{};
    vputlong64(head.next, number + 1 < chain.blocks.size() ? chain.blocks[number + 1] : 0);
    vputint32(head.record_length, number == 0 ? static_cast<std::int32_t>(chain.length) : 0);
    std::memcpy(head.marker, Marker.data(), Marker.size());
    vputint32(head.number, static_cast<std::int32_t>(number));
    std::string block(reinterpret_cast<const char *>(&head), sizeof head);
    block += content.substr(std::min(start, content.size()), room_of_block(file));
    return file.write_at(chain.blocks[number], block);
}

// Last block first: the record is not seen in its new length before all of it is there.
Result<void> write_content(const VRunFile &file, const Chain &chain, std::string_view content) {
    assert(chain.length == content.size());
    for (std::size_t number = chain.blocks.size(); number-- > 0;) {
        if (auto written = write_block(file, chain, number, content); !written) return written;
    }
    return {};
}

Result<void> give_back_blocks(const VRunFile &file, const std::vector<std::int64_t> &blocks) {
    for (const std::int64_t block : blocks) {
        if (auto given = give_back_block(file, block); !given) return given;
    }
    return {};
}

// Makes the chain long enough or short enough; what it no longer needs is in the result.
Result<std::vector<std::int64_t>> fit_chain(const VRunFile &file, Chain &chain, std::uint32_t length) {
    const std::size_t wanted = blocks_for(file, length);
    while (chain.blocks.size() < wanted) {
        const auto block = take_block(file);
        if (!block) return block.error();
        chain.blocks.push_back(*block);
    }
    const std::vector<std::int64_t> spare(chain.blocks.begin() + static_cast<std::ptrdiff_t>(wanted),
                                          chain.blocks.end());
    chain.blocks.resize(wanted);
    chain.length = length;
    return spare;
}

Result<void> resize_record(const VRunFile &file, HeldFrame &frame, std::uint32_t length) {
    auto chain = read_chain(file, frame.offset);
    if (!chain) return chain.error();
    const auto spare = fit_chain(file, *chain, length);
    if (!spare) return spare.error();
    frame.content.resize(length, '\0');
    frame.show_content();
    if (length == 0) frame.offset = 0;
    if (auto written = write_content(file, *chain, frame.content); !written) return written;
    return give_back_blocks(file, *spare);
}

// --- frames --------------------------------------------------------------------------------------------------------

VRunFrame *hold(VRunFile &file, std::int64_t offset, std::string content, bool is_record) {
    auto frame = std::make_unique<HeldFrame>();
    frame->offset = offset;
    frame->content = std::move(content);
    frame->is_record = is_record;
    frame->show_content();
    VRunFrame *const shown = frame.get();
    file.frames.emplace(shown, std::move(frame));
    return shown;
}

HeldFrame *find_block(VRunFile &file, std::int64_t offset) {
    for (auto &[shown, frame] : file.frames) {
        if (!frame->is_record && frame->offset == offset) return frame.get();
    }
    return nullptr;
}

int fail(int error) { return result_of(Error{error, {}}); }

Result<std::int64_t> make_record(VRunFile &file, std::uint32_t length) {
    if (const auto head = ensure_head(file); !head) return head.error();
    Chain chain;
    if (const auto spare = fit_chain(file, chain, length); !spare) return spare.error();
    if (const auto written = write_content(file, chain, std::string(length, '\0')); !written) return written.error();
    return chain.blocks.front();
}

}  // namespace
}  // namespace velda::rawio

using namespace velda::rawio;

int VRunFileIOEnableLink(DP *, VRunFile *file, uint32_t block_size) {
    if (block_size < SmallestBlock || block_size > LargestBlock) return fail(EINVAL);
    if (file->block_size != block_size) file->frames.clear();
    file->block_size = block_size;
    return 0;
}

int VRunFileIOFrameRead(DP *, VRunFile *file, int64_t offset, VRunFrame **frame) {
    if (file->block_size == 0 || offset < 0 || offset % file->block_size != 0) return fail(EINVAL);
    if (HeldFrame *const held = find_block(*file, offset)) {
        ++held->holders;
        *frame = held;
        return 0;
    }
    std::string content(file->block_size, '\0');
    const auto got = file->read_at(offset, content.data(), content.size());
    if (!got) return result_of(got.error());
    if (*got == 0) return fail(ENODATA);
    content.resize(*got);
    *frame = hold(*file, offset, std::move(content), false);
    return 0;
}

int VRunFileIONewLink(DP *, VRunFile *file, uint32_t length, VRunFrame **frame) {
    if (file->block_size == 0 || length == 0) return fail(EINVAL);
    const auto offset = make_record(*file, length);
    if (!offset) return result_of(offset.error());
    *frame = hold(*file, *offset, std::string(length, '\0'), true);
    return 0;
}

int VRunFileIOLinkRead(DP *, VRunFile *file, int64_t offset, VRunFrame **frame) {
    if (file->block_size == 0) return fail(EINVAL);
    const auto chain = read_chain(*file, offset);
    if (!chain) return result_of(chain.error());
    auto content = read_content(*file, *chain);
    if (!content) return result_of(content.error());
    *frame = hold(*file, offset, std::move(*content), true);
    return 0;
}

int VRunFileIOLinkResize(DP *, VRunFile *file, VRunFrame *frame, uint32_t length) {
    const auto held = file->frames.find(frame);
    if (held == file->frames.end() || !held->second->is_record) return fail(EINVAL);
    return result_of(resize_record(*file, *held->second, length));
}

int VRunFileIOLinkRelease(DP *, VRunFile *file, VRunFrame *frame) {
    if (!frame) return 0;
    const auto held = file->frames.find(frame);
    if (held == file->frames.end()) return fail(EINVAL);
    if (--held->second->holders == 0) file->frames.erase(held);
    return 0;
}
