#include "runtime/transaction/commit.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "runtime/store/journalling.h"

namespace velda::transaction {
namespace {

// Updates that one call of the driver makes.
struct Batch {
    store::OpenFile *file = nullptr;
    store::TransferMode mode = store::TransferMode::Default;
    bool journalled = true;
    std::vector<store::Update> updates;
};

// The updates of each file in the order in which they were made.
std::vector<Batch> batches_of(const HeldUpdates &held) {
    std::vector<Batch> batches;
    for (const auto &file : held.files()) {
        std::map<std::pair<store::TransferMode, bool>, std::vector<const UpdatesByKey::value_type *>> kinds;
        for (const auto &held_update : file->updates)
            kinds[{held_update.second.mode, held_update.second.journalled}].push_back(&held_update);
        for (auto &[kind, updates] : kinds) {
            std::ranges::sort(updates, {}, [](const auto *update) { return update->second.order; });
            Batch &batch = batches.emplace_back(Batch{file->file.get(), kind.first, kind.second, {}});
            for (const auto *update : updates) batch.updates.push_back({update->first, update->second.record});
        }
    }
    return batches;
}

}  // namespace

Result<void> make_updates(DP *dp, const HeldUpdates &held) {
    for (const Batch &batch : batches_of(held)) {
        const store::UpdateScope scope(dp, batch.journalled);
        if (auto applied = batch.file->apply(batch.updates, batch.mode); !applied) return applied;
    }
    return {};
}

}  // namespace velda::transaction
