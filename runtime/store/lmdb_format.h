// lmdb_format.h - the parts of LMDB's file format (data version 1, little-endian 64-bit) that are looked at without
// LMDB: the two meta pages, which are checked before a file is mapped, and the tree pages, which a check walks byte by
// byte.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace velda::store::lmdb {

static_assert(std::endian::native == std::endian::little && sizeof(void *) == 8, "the format below is the 64-bit one");

inline constexpr std::uint32_t Magic = 0xBEEFC0DE;
inline constexpr std::uint32_t DataVersion = 1;
inline constexpr std::uint64_t NoPage = ~std::uint64_t{0};  // the root of an empty tree
inline constexpr std::size_t PageBytes = 4096;              // made here, and the only size this build opens
inline constexpr std::size_t MetaPages = 2;
inline constexpr std::size_t MaxDepth = 32;  // LMDB's own limit of a cursor's stack
inline constexpr std::size_t MaxStoredKeyBytes = 511;

// Flags of the free list's tree: of the tree itself (integer keys), and LMDB's MDB_NOSUBDIR, with which files are made.
inline constexpr std::uint16_t EnvironmentFlags = 0x4008;

// Flags of a page.
enum PageFlag : std::uint16_t { Branch = 0x01, Leaf = 0x02, Overflow = 0x04, Meta = 0x08, Leaf2 = 0x20 };

// The head of every page.
struct PageHead {
    std::uint64_t number;
    std::uint16_t pad;
    std::uint16_t flags;
    std::uint16_t lower;  // with `upper`: free space between the node table and the nodes; in an overflow page the two
    std::uint16_t upper;  // together are the number of pages
};
static_assert(sizeof(PageHead) == 16);

struct Tree {
    std::uint32_t pad;  // of the free list's tree: the page size
    std::uint16_t flags;
    std::uint16_t depth;
    std::uint64_t branch_pages;
    std::uint64_t leaf_pages;
    std::uint64_t overflow_pages;
    std::uint64_t entries;
    std::uint64_t root;
};
static_assert(sizeof(Tree) == 48);

struct MetaBody {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint64_t address;
    std::uint64_t map_bytes;
    Tree free_list;
    Tree main;
    std::uint64_t last_page;
    std::uint64_t transaction;
};
static_assert(sizeof(MetaBody) == 136 && offsetof(MetaBody, last_page) == 120);

struct MetaPage {
    PageHead head;
    MetaBody body;
};

// A node of a branch or leaf page; the key follows it, and in a leaf the data follow the key.
struct NodeHead {
    std::uint16_t low;  // leaf: size of the data; branch: page number, with `flags` as its highest 16 bits
    std::uint16_t high;
    std::uint16_t flags;
    std::uint16_t key_bytes;
};
static_assert(sizeof(NodeHead) == 8);

enum NodeFlag : std::uint16_t {
    BigData = 0x01,  // the data lie in overflow pages; an 8-byte page number stands here
    SubData = 0x02,  // the data are the Tree of a named database
    DupData = 0x04   // sorted duplicates; not used by this system
};

}  // namespace velda::store::lmdb
