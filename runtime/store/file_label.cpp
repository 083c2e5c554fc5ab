#include "runtime/store/file_label.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace velda::store {
namespace {

struct HeadPages {
    alignas(8) std::array<char, lmdb::MetaPages * lmdb::PageBytes> bytes;
};

template <class T>
T part(const HeadPages &pages, std::size_t offset) {
    T value;
    std::memcpy(&value, pages.bytes.data() + offset, sizeof value);
    return value;
}

Error damaged(const std::string &path, const std::string &reason) {
    return {NeedsCheck, "file '" + path + "' is damaged: " + reason + "; restore it, or see CHECK-FILE"};
}

std::size_t read_head_pages(int descriptor, HeadPages &pages) {
    ssize_t got;
    do got = pread(descriptor, pages.bytes.data(), pages.bytes.size(), 0);
    while (got < 0 && errno == EINTR);
    return got < 0 ? 0 : static_cast<std::size_t>(got);
}

bool tree_in_range(const lmdb::Tree &tree, std::uint64_t pages) {
    if (tree.root == lmdb::NoPage) return tree.depth == 0;
    return tree.root >= lmdb::MetaPages && tree.root < pages && tree.depth >= 1 && tree.depth <= lmdb::MaxDepth;
}

// Page 0 holds the state of an even transaction and page 1 that of the odd one before or after it.
bool follow_each_other(std::uint64_t even, std::uint64_t odd) {
    if (even == 0 && odd == 0) return true;  // laid out, never changed
    return even % 2 == 0 && odd % 2 == 1 && (even + 1 == odd || odd + 1 == even);
}

// What is wrong with one meta page; empty when nothing is.
std::string fault_of(const lmdb::MetaPage &meta, std::uint64_t size_bytes) {
    if (!(meta.head.flags & lmdb::Meta)) return "is not a meta page";
    if (meta.body.magic != lmdb::Magic) return "has a wrong magic number";
    if (meta.body.version != lmdb::DataVersion) return "has format version " + std::to_string(meta.body.version);
    if (meta.body.free_list.pad != lmdb::PageBytes) return "has page size " + std::to_string(meta.body.free_list.pad);
    if (meta.body.free_list.flags != lmdb::EnvironmentFlags || meta.body.main.flags != 0) return "has wrong flags";
    const std::uint64_t pages = std::min(meta.body.last_page + 1, size_bytes / lmdb::PageBytes);
    if (!tree_in_range(meta.body.free_list, pages)) return "has a root of the free list that lies outside the file";
    if (!tree_in_range(meta.body.main, pages)) return "has a root of the main tree that lies outside the file";
    return "";
}

}  // namespace

namespace {

Result<FileHead> parse_file_head(int descriptor, const std::string &path) {
    HeadPages pages;
    const std::size_t got = read_head_pages(descriptor, pages);
    struct stat status;
    if (fstat(descriptor, &status) < 0) return system_error(errno, "cannot read file", path);
    if (got < LabelOffset + sizeof(FileLabel)) return Error{EINVAL, "'" + path + "' is not a database file"};

    FileHead head{part<FileLabel>(pages, LabelOffset), {}, static_cast<std::uint64_t>(status.st_size)};
    const auto first = part<lmdb::MetaPage>(pages, 0);
    if (head.label.magic != LabelMagic && first.body.magic != lmdb::Magic)
        return Error{EINVAL, "'" + path + "' is not a database file"};
    if (head.label.magic != LabelMagic) return damaged(path, "its label is missing");
    if (head.label.version != LabelVersion || head.label.durability > 1)
        return damaged(path, "its label is not readable");
    if (got < pages.bytes.size()) return damaged(path, "it is cut off after " + std::to_string(got) + " bytes");

    const auto second = part<lmdb::MetaPage>(pages, lmdb::PageBytes);
    if (auto fault = fault_of(first, head.size_bytes); !fault.empty()) return damaged(path, "page 0 " + fault);
    if (auto fault = fault_of(second, head.size_bytes); !fault.empty()) return damaged(path, "page 1 " + fault);
    head.metas[0] = first.body;
    head.metas[1] = second.body;
    if (!follow_each_other(first.body.transaction, second.body.transaction))
        return damaged(path, "pages 0 and 1 show transactions " + std::to_string(first.body.transaction) + " and " +
                                 std::to_string(second.body.transaction));
    return head;
}

}  // namespace

// A writer may be changing one of the pages meanwhile: a fault counts when it stays.
Result<FileHead> read_file_head(int descriptor, const std::string &path) {
    auto head = parse_file_head(descriptor, path);
    for (int attempt = 0; !head && head.error().number == NeedsCheck && attempt < 20; ++attempt)
        head = parse_file_head(descriptor, path);
    return head;
}

bool has_file_label(int descriptor) {
    HeadPages pages;
    const std::size_t got = read_head_pages(descriptor, pages);
    if (got < LabelOffset + sizeof(FileLabel)) return false;
    return part<FileLabel>(pages, LabelOffset).magic == LabelMagic ||
           part<lmdb::MetaPage>(pages, 0).body.magic == lmdb::Magic;
}

Result<void> write_file_label(int descriptor, Durability durability, bool journalled, const std::string &path) {
    const FileLabel label{LabelMagic, LabelVersion, static_cast<std::uint32_t>(durability), 0, 0, journalled ? 0u : 1u,
                          {}};
    const ssize_t put = pwrite(descriptor, &label, sizeof label, LabelOffset);
    if (put != static_cast<ssize_t>(sizeof label))
        return system_error(put < 0 ? errno : ENOSPC, "cannot label file", path);
    return {};
}

Result<void> MappedLabel::map(int descriptor, bool writable, const std::string &path) {
    void *page = mmap(nullptr, lmdb::PageBytes, PROT_READ | (writable ? PROT_WRITE : 0), MAP_SHARED, descriptor, 0);
    if (page == MAP_FAILED) return system_error(errno, "cannot map the label of file", path);
    unmap();
    page_ = page;
    label_ = reinterpret_cast<FileLabel *>(static_cast<char *>(page) + LabelOffset);
    return {};
}

void MappedLabel::unmap() {
    if (page_) munmap(page_, lmdb::PageBytes);
    page_ = nullptr;
    label_ = nullptr;
}

}  // namespace velda::store
