#include "runtime/process/subroutine.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "runtime/process/context.h"
#include "runtime/process/process.h"
#include "runtime/process/stack_room.h"
#include "runtime/process/stop.h"

namespace {

struct GosubStack {
    std::unique_ptr<int32_t[]> room;
    VELDAGosubStack stack{nullptr, 0, 0};

    void enlarge() {
        const int32_t limit = std::max<int32_t>(VELDA_GOSUB_ROOM, stack.limit * 2);
        auto larger = std::make_unique<int32_t[]>(static_cast<std::size_t>(limit));
        std::copy_n(stack.points, stack.top, larger.get());
        room = std::move(larger);
        stack.points = room.get();
        stack.limit = limit;
    }
};

// One call of a subroutine. Its return stack is made by the first GOSUB.
struct Frame {
    DP *previous_context;
    std::unique_ptr<GosubStack> gosub;
};

struct Frames {
    std::vector<Frame> calls;
    GosubStack outside;  // for logic that runs in no subroutine
};

GosubStack &gosub_of(DP *dp) {
    Frames &frames = dp->state<Frames>();
    if (frames.calls.empty()) return frames.outside;
    auto &gosub = frames.calls.back().gosub;
    if (!gosub) gosub = std::make_unique<GosubStack>();
    return *gosub;
}

}  // namespace

void VLibCSUBROUTINE_INIT3_VV(DP *dp, const char *name, const char *letters, int arguments) {
    const std::size_t given = letters ? std::strlen(letters) : 0;
    if (given != static_cast<std::size_t>(arguments)) {
        velda::fail_command(dp, EINVAL,
                            std::string("SUBROUTINE_ARGUMENTS") + velda::VM + name + velda::VM +
                                std::to_string(arguments) + velda::VM + std::to_string(given));
    }
    if (velda::stack_nearly_full()) velda::fail_command(dp, ENOMEM, std::string("CALLS_TOO_DEEP") + velda::VM + name);
    dp->state<Frames>().calls.push_back({velda_set_context(dp), nullptr});
}

void VLibCSUBROUTINE_END_VI(DP *dp, int) {
    auto &calls = dp->state<Frames>().calls;
    assert(!calls.empty());
    velda_set_context(calls.back().previous_context);
    calls.pop_back();
}

VELDAGosubStack *velda_gosub_stack(DP *dp) {
    GosubStack &gosub = gosub_of(dp);
    if (gosub.stack.limit == 0) gosub.enlarge();
    return &gosub.stack;
}

void VLibCGOSUB_STACK_FULL_V(DP *dp) {
    GosubStack &gosub = gosub_of(dp);
    if (gosub.stack.limit >= VELDA_GOSUB_LIMIT)
        velda::fail_command(dp, ENOMEM,
                            std::string("GOSUB_STACK_FULL") + velda::VM + std::to_string(VELDA_GOSUB_LIMIT));
    gosub.enlarge();
}
