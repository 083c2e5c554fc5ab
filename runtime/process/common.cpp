#include <string>

#include "runtime/process/command_level.h"
#include "runtime/process/context.h"
#include "runtime/process/process.h"
#include "runtime/process/stop.h"

namespace {

VAR *attach(DP *dp, const char *name, int cells) {
    velda::CommonTable &commons = velda::current_commons(dp);
    auto found = commons.find(std::string_view(name));
    if (found == commons.end() && cells > 0) {
        velda::CommonCells block{std::make_unique<VAR[]>(static_cast<std::size_t>(cells)), cells};
        found = commons.emplace(name, std::move(block)).first;
    }
    const int attached = found == commons.end() ? 0 : found->second.count;
    if (attached != cells || cells < 1) {
        velda::fail_command(dp, EINVAL,
                            std::string("COMMON_SIZE") + velda::VM + name + velda::VM + std::to_string(cells) +
                                velda::VM + std::to_string(attached));
    }
    return found->second.cells.get();
}

}  // namespace

void VLibCAttachCommon_VSSVI(DP *dp, const char *name, VAR **base, int cells, int *attached) {
    *base = attach(dp, name, cells);
    if (attached) *attached = static_cast<int>(dp->serial);
}

void VLibCReloadCommon_VSSVI(DP *dp, const char *name, VAR **base, int cells, int *attached) {
    VLibCAttachCommon_VSSVI(dp, name, base, cells, attached);
}

void VELDAUtil(DP *, int) {}
