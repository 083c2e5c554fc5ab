// The distinct elements of a list, found by hash chains.
#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "fileutil/fileutil.h"

using namespace velda;

namespace {

constexpr std::uint32_t Chains = 997;
constexpr unsigned char LowestSeparator = 0xFD;  // VM, AM and the byte above them all end an element

struct ChainEntry {
    std::string_view element;  // lies in the list
    std::uint32_t hash;
    const ChainEntry *next;
};

// The heads of the chains: the thread's own block, kept from call to call and empty between them.
using ChainHeads = std::array<const ChainEntry *, Chains>;

ChainHeads &thread_chain_heads(DP *dp) {
    static int key = 0;
    return *static_cast<ChainHeads *>(VLibCreateUserData(dp, "vutil.uniquekeys", sizeof(ChainHeads), &key, nullptr));
}

class SeenElements {
  public:
    explicit SeenElements(DP *dp) : heads_(thread_chain_heads(dp)) {}
    ~SeenElements() { heads_.fill(nullptr); }
    SeenElements(const SeenElements &) = delete;
    SeenElements &operator=(const SeenElements &) = delete;

    // False when the element was added before.
    bool add(std::string_view element) {
        const std::uint32_t hash =
            VediBaseHashUINT(element.data(), static_cast<std::uint32_t>(element.size()), VEDI_HASH_TEXT);
        const ChainEntry *&head = heads_[hash % Chains];
        for (const ChainEntry *entry = head; entry; entry = entry->next) {
            if (entry->hash == hash && entry->element == element) return false;
        }
        head = &entries_.emplace_back(ChainEntry{element, hash, head});
        return true;
    }

  private:
    ChainHeads &heads_;
    std::deque<ChainEntry> entries_;
};

bool separates(char byte) { return static_cast<unsigned char>(byte) >= LowestSeparator; }

// Takes the next element off the front of a list; "" where two separators meet.
std::string_view take_element(std::string_view &list) {
    std::size_t length = 0;
    while (length < list.size() && !separates(list[length])) ++length;
    const std::string_view element = list.substr(0, length);
    list.remove_prefix(std::min(length + 1, list.size()));
    return element;
}

std::string distinct_elements(DP *dp, std::string_view list) {
    SeenElements seen(dp);
    std::string distinct;
    while (!list.empty()) {
        const std::string_view element = take_element(list);
        if (element.empty() || !seen.add(element)) continue;
        if (!distinct.empty()) distinct += AM;
        distinct += element;
    }
    return distinct;
}

}  // namespace

VAR *VELDAUniqueKeys(VAR *target, DP *dp, const VAR *source) {
    *target = distinct_elements(dp, source->view());
    return target;
}
