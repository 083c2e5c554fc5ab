#include "runtime/store/page_walk.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "runtime/store/hashed_format.h"

namespace velda::store {
namespace {

using lmdb::NodeHead;
using lmdb::PageBytes;
using lmdb::PageHead;
using lmdb::Tree;

struct Page {
    alignas(8) std::array<char, PageBytes> bytes;
    const PageHead &head() const { return *reinterpret_cast<const PageHead *>(bytes.data()); }
    std::size_t nodes() const { return (head().lower - sizeof(PageHead)) / 2; }
};

// A node with its parts as views into the page, all inside it.
struct Node {
    NodeHead head;
    std::string_view key;
    std::string_view data;  // of a leaf, when it lies in the page

    std::uint64_t child() const { return head.low | std::uint64_t{head.high} << 16 | std::uint64_t{head.flags} << 32; }
    std::uint64_t data_bytes() const { return head.low | std::uint64_t{head.high} << 16; }
};

// The keys that a page may hold: from `low` (inclusive) to `high` (exclusive).
struct KeyRange {
    std::optional<std::string> low;
    std::optional<std::string> high;
};

enum class Role { FreeList, Main, Records, Control };
constexpr std::string_view RoleNames[] = {"free list", "main tree", "records", "control records"};

bool comes_before(Role role, std::string_view a, std::string_view b) {
    if (role != Role::FreeList) return a < b;
    std::uint64_t left = 0, right = 0;  // numbers of transactions
    std::memcpy(&left, a.data(), std::min(sizeof left, a.size()));
    std::memcpy(&right, b.data(), std::min(sizeof right, b.size()));
    return left < right;
}

class Walker {
  public:
    Walker(int descriptor, const FileHead &head, const lmdb::MetaBody &state, const CheckReport &report)
        : descriptor_(descriptor),
          state_(state),
          file_pages_(head.size_bytes / PageBytes),
          pages_(std::min(state.last_page + 1, file_pages_)),
          report_(report) {}

    WalkResult walk_all() {
        seen_.assign(pages_, false);
        walk_tree(Role::Main, state_.main);
        for (const auto &[role, tree] : named_) walk_tree(role, tree);
        walk_tree(Role::FreeList, state_.free_list);
        return result_;
    }

    // The main tree, which is small, and the roots of the others.
    WalkResult walk_roots() {
        walk_tree(Role::Main, state_.main);
        Page page;
        for (const auto &[role, tree] : named_)
            if (tree.root != lmdb::NoPage) read_tree_page(role, tree.root, page);
        if (state_.free_list.root != lmdb::NoPage) read_tree_page(Role::FreeList, state_.free_list.root, page);
        return result_;
    }

    bool has_named_trees() const { return named_.size() == 2; }

  private:
    void find(Role role, std::uint64_t page, const std::string &fault) {
        ++result_.findings;
        report_("page " + std::to_string(page) + " (" + std::string(RoleNames[static_cast<int>(role)]) + "): " + fault);
    }

    bool read_bytes(std::uint64_t offset, char *target, std::size_t size) {
        while (size > 0) {
            const ssize_t got = pread(descriptor_, target, size, static_cast<off_t>(offset));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return false;
            offset += got, target += got, size -= got;
        }
        return true;
    }

    // Notes that a page is in use; false when it is outside the file or in use already.
    bool claim(Role role, std::uint64_t page, std::uint64_t count = 1) {
        if (page < lmdb::MetaPages || page >= pages_ || count > pages_ - page) {
            find(role, page, "lies outside the file, which has " + std::to_string(file_pages_) + " pages");
            return false;
        }
        if (seen_.empty()) return true;
        for (std::uint64_t at = page; at < page + count; ++at) {
            if (seen_[at]) {
                find(role, at, "is in use twice");
                return false;
            }
            seen_[at] = true;
        }
        return true;
    }

    // Reads a branch or leaf page and checks all that does not depend on its nodes.
    bool read_tree_page(Role role, std::uint64_t number, Page &page) {
        if (!claim(role, number)) return false;
        if (!read_bytes(number * PageBytes, page.bytes.data(), PageBytes)) {
            find(role, number, "cannot be read");
            return false;
        }
        const PageHead &head = page.head();
        const std::uint16_t kind = head.flags & (lmdb::Branch | lmdb::Leaf | lmdb::Overflow | lmdb::Meta | lmdb::Leaf2);
        if (head.number != number)
            find(role, number, "says that it is page " + std::to_string(head.number));
        else if (kind != lmdb::Branch && kind != lmdb::Leaf)
            find(role, number, "is neither a branch nor a leaf");
        else if (head.lower < sizeof(PageHead) || head.lower > head.upper || head.upper > PageBytes || head.lower % 2)
            find(role, number, "has wrong bounds of its free space");
        else
            return true;
        return false;
    }

    std::optional<Node> node_at(const Page &page, std::size_t index) {
        std::uint16_t at;
        std::memcpy(&at, page.bytes.data() + sizeof(PageHead) + 2 * index, sizeof at);
        if (at < page.head().upper || at + sizeof(NodeHead) > PageBytes) return std::nullopt;
        Node node;
        std::memcpy(&node.head, page.bytes.data() + at, sizeof node.head);
        const std::size_t key_at = at + sizeof(NodeHead);
        if (key_at + node.head.key_bytes > PageBytes) return std::nullopt;
        node.key = {page.bytes.data() + key_at, node.head.key_bytes};
        if (!(page.head().flags & lmdb::Leaf)) return node;
        const std::size_t data_at = key_at + node.head.key_bytes;
        const std::uint64_t in_page = node.head.flags & lmdb::BigData ? sizeof(std::uint64_t) : node.data_bytes();
        if (data_at + in_page > PageBytes) return std::nullopt;
        node.data = {page.bytes.data() + data_at, in_page};
        return node;
    }

    void walk_tree(Role role, const Tree &tree) {
        entries_ = 0;
        if (tree.root != lmdb::NoPage) walk_page(role, tree.root, tree.depth, {});
        if (entries_ == tree.entries) return;
        find(role, tree.root,
             "leads to " + std::to_string(entries_) + " entries, but the tree counts " + std::to_string(tree.entries));
    }

    void walk_page(Role role, std::uint64_t number, unsigned depth, const KeyRange &range) {
        Page page;
        if (!read_tree_page(role, number, page)) return;
        const bool leaf = page.head().flags & lmdb::Leaf;
        if (leaf != (depth == 1))
            return find(role, number, leaf ? "is a leaf above the leaves" : "is a branch where a leaf belongs");
        std::string before;
        for (std::size_t index = 0; index < page.nodes(); ++index) {
            const auto node = node_at(page, index);
            if (!node) {
                find(role, number, "entry " + std::to_string(index) + " lies outside the page");
                continue;
            }
            const bool implied = !leaf && index == 0;  // the first key of a branch page is not stored
            if (!implied) check_order(role, number, index, *node, before, index > (leaf ? 0 : 1), range);
            before = node->key;
            if (leaf)
                visit(role, number, *node);
            else
                walk_page(role, node->child(), depth - 1, child_range(page, index, *node, range));
        }
    }

    void check_order(Role role, std::uint64_t page, std::size_t index, const Node &node, const std::string &before,
                     bool has_before, const KeyRange &range) {
        const bool wrong = (has_before && !comes_before(role, before, node.key)) ||
                           (range.low && comes_before(role, node.key, *range.low)) ||
                           (range.high && !comes_before(role, node.key, *range.high));
        if (wrong) find(role, page, "the key of entry " + std::to_string(index) + " is out of order");
    }

    KeyRange child_range(const Page &page, std::size_t index, const Node &node, const KeyRange &range) {
        KeyRange result = range;
        if (index > 0) result.low = std::string(node.key);
        if (index + 1 < page.nodes()) {
            if (const auto next = node_at(page, index + 1)) result.high = std::string(next->key);
        }
        return result;
    }

    void visit(Role role, std::uint64_t page, const Node &node) {
        ++entries_;
        if (role == Role::Main) return visit_named(page, node);
        const std::uint64_t findings = result_.findings;
        std::uint64_t data_at = 0;  // of data in overflow pages
        if (node.head.flags & lmdb::BigData) data_at = visit_overflow(role, node);
        if (result_.findings != findings) return;
        if (role == Role::FreeList) visit_free_pages(page, node, data_at);
        if (role != Role::Records) return;
        if (is_long_stored_key(node.key)) check_long_key(page, node, data_at);
        if (result_.findings == findings) ++result_.records;
    }

    void visit_named(std::uint64_t page, const Node &node) {
        Tree tree;
        if (!(node.head.flags & lmdb::SubData) || node.data.size() != sizeof tree) {
            find(Role::Main, page, "holds something that is no tree");
            return;
        }
        std::memcpy(&tree, node.data.data(), sizeof tree);
        if (tree.root != lmdb::NoPage && (tree.depth < 1 || tree.depth > lmdb::MaxDepth)) {
            find(Role::Main, page, "holds a tree of depth " + std::to_string(tree.depth));
            return;
        }
        if (node.key == RecordsTree)
            named_.emplace_back(Role::Records, tree);
        else if (node.key == ControlTree)
            named_.emplace_back(Role::Control, tree);
    }

    // The offset of the data in the file.
    std::uint64_t visit_overflow(Role role, const Node &node) {
        std::uint64_t first;
        std::memcpy(&first, node.data.data(), sizeof first);
        const std::uint64_t count = (sizeof(PageHead) - 1 + node.data_bytes()) / PageBytes + 1;
        if (!claim(role, first, count)) return 0;
        PageHead head;
        const std::uint64_t at = first * PageBytes;
        if (!read_bytes(at, reinterpret_cast<char *>(&head), sizeof head) ||
            !readable(at, sizeof head + node.data_bytes()))
            find(role, first, "cannot be read");
        else if (head.number != first || !(head.flags & lmdb::Overflow) ||
                 (head.lower | std::uint64_t{head.upper} << 16) < count)
            find(role, first, "is not the overflow page that it should be");
        return at + sizeof head;
    }

    bool readable(std::uint64_t at, std::uint64_t size) {
        std::vector<char> chunk(std::min<std::uint64_t>(size, 1 << 20));
        for (; size > 0; at += chunk.size()) {
            chunk.resize(std::min<std::uint64_t>(size, chunk.size()));
            if (!read_bytes(at, chunk.data(), chunk.size())) return false;
            size -= chunk.size();
        }
        return true;
    }

    std::optional<std::string> data_of(const Node &node, std::uint64_t data_at, std::uint64_t limit) {
        if (!(node.head.flags & lmdb::BigData)) return std::string(node.data.substr(0, limit));
        std::string data(std::min(node.data_bytes(), limit), '\0');
        if (!read_bytes(data_at, data.data(), data.size())) return std::nullopt;
        return data;
    }

    // A list of pages that a transaction freed: their count, then their numbers.
    void visit_free_pages(std::uint64_t page, const Node &node, std::uint64_t data_at) {
        const auto data = data_of(node, data_at, node.data_bytes());
        std::vector<std::uint64_t> list(data ? data->size() / sizeof(std::uint64_t) : 0);
        if (!list.empty()) std::memcpy(list.data(), data->data(), list.size() * sizeof(std::uint64_t));
        if (list.empty() || list[0] > list.size() - 1)
            return find(Role::FreeList, page, "holds a list of the wrong length");
        for (std::size_t i = 1; i <= list[0]; ++i) {
            if (list[i] < lmdb::MetaPages || list[i] > state_.last_page)
                return find(Role::FreeList, page,
                            "frees page " + std::to_string(list[i]) + ", which the file does not have");
            if (list[i] >= seen_.size()) continue;  // freed before it was ever written
            if (seen_[list[i]]) return find(Role::FreeList, list[i], "is free and in use");
            seen_[list[i]] = true;
        }
    }

    void check_long_key(std::uint64_t page, const Node &node, std::uint64_t data_at) {
        const auto data = data_of(node, data_at, LongHeadBytes + MaxKeyBytes);
        LongData parts;
        if (!data || !parse_long_data(*data, parts) || long_family(long_stored_key(parts.key)) != long_family(node.key))
            find(Role::Records, page, "holds a long key that does not belong there");
    }

    int descriptor_;
    const lmdb::MetaBody &state_;
    std::uint64_t file_pages_;
    std::uint64_t pages_;
    const CheckReport &report_;
    std::vector<bool> seen_;  // empty while only the roots are looked at
    std::vector<std::pair<Role, Tree>> named_;
    std::uint64_t entries_ = 0;
    WalkResult result_;
};

}  // namespace

Result<void> check_before_use(int descriptor, const FileHead &head, std::uint64_t transaction,
                              const std::string &path) {
    const lmdb::MetaBody *const state = head.state_of(transaction);
    if (!state) return Error{EAGAIN, "file '" + path + "' is being changed faster than it can be opened"};
    std::string first_finding;
    const CheckReport keep_first = [&](std::string_view finding) {
        if (first_finding.empty()) first_finding = finding;
    };
    Walker roots(descriptor, head, *state, keep_first);
    WalkResult result = roots.walk_roots();
    if (result.findings == 0 && !roots.has_named_trees()) first_finding = "its trees are missing";
    const bool short_file = state->last_page >= head.size_bytes / lmdb::PageBytes;
    if (first_finding.empty() && short_file) Walker(descriptor, head, *state, keep_first).walk_all();
    if (first_finding.empty()) return {};
    return Error{NeedsCheck, "file '" + path + "' is damaged: " + first_finding + "; restore it, or see CHECK-FILE"};
}

WalkResult walk_pages(int descriptor, const FileHead &head, std::uint64_t transaction, const CheckReport &report) {
    const lmdb::MetaBody *const state = head.state_of(transaction);
    return state ? Walker(descriptor, head, *state, report).walk_all() : WalkResult{};
}

}  // namespace velda::store
