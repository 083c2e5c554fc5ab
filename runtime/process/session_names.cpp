#include "runtime/process/session_names.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "runtime/base/global_directory.h"

namespace velda {
namespace {

constexpr std::size_t UserRecordBytes = 16 * 1024;

std::string environment_or(const char *name, const std::string &otherwise) {
    const char *value = std::getenv(name);
    return value && *value ? value : otherwise;
}

}  // namespace

std::string user_name() {
    struct passwd record;
    struct passwd *found = nullptr;
    std::vector<char> room(UserRecordBytes);
    const uid_t user = getuid();
    if (getpwuid_r(user, &record, room.data(), room.size(), &found) == 0 && found) return found->pw_name;
    return std::to_string(user);
}

std::string account_name() { return environment_or("VELDAACCOUNT", user_name()); }

std::string system_file_name() { return environment_or("VELDASYSTEM", global_directory() + "/SYSTEM"); }

}  // namespace velda
