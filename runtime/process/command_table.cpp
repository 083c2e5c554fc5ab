#include "runtime/process/command_table.h"

#include <mutex>
#include <unordered_map>

namespace velda {
namespace {

struct CommandRegistry {
    std::mutex mutex;
    std::unordered_map<std::string_view, const Command *> commands;
};

CommandRegistry &registry() {
    static CommandRegistry commands;
    return commands;
}

}  // namespace

void register_commands(std::span<const Command> commands) {
    const std::lock_guard guard(registry().mutex);
    for (const Command &command : commands) registry().commands[command.name] = &command;
}

const Command *find_command(std::string_view name) {
    const std::lock_guard guard(registry().mutex);
    const auto found = registry().commands.find(name);
    return found == registry().commands.end() ? nullptr : found->second;
}

}  // namespace velda
