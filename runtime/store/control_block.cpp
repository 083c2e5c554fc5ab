#include "runtime/store/control_block.h"

#include <cstring>
#include <new>

namespace velda::store {
namespace {

constexpr std::uint64_t OpenState = 0x56454C4441424C4BULL;

}  // namespace

static_assert(sizeof(Handle) == sizeof(VediControlBlock::handle));

void construct_control_block(VediControlBlock &block, std::shared_ptr<OpenFile> file, std::string name) {
    std::memset(static_cast<void *>(&block), 0, sizeof block);
    new (&block) Handle();
    if (auto settings = file->settings(); settings && !settings->journalled) block.flags |= VEDI_FILE_NOT_JOURNALLED;
    new (block.reserved) ControlBlockContent{std::move(file), std::move(name)};
    block.state = OpenState;
}

void destroy_control_block(VediControlBlock &block) {
    block.state = 0;
    content_of(block).~ControlBlockContent();
}

bool is_open(const VediControlBlock *block) { return block && block->state == OpenState; }

}  // namespace velda::store
