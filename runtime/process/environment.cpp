// The environment, the current directory, and users and groups of the operating system.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "runtime/process/context.h"
#include "runtime/process/process.h"

namespace {

constexpr std::size_t RecordBytes = 16 * 1024;
constexpr std::size_t LargestRecordBytes = 16 * 1024 * 1024;

// What VELDAgetpwnam and VELDAgetgrnam have found last: the records point into the room beside them.
struct FoundNames {
    struct passwd user;
    std::vector<char> user_room;
    struct group group;
    std::vector<char> group_room;
};

// Looks a name up with one of the reentrant calls, with as much room as its record needs.
template <class Record, class LookUp>
Record *find_name(const char *name, Record &record, std::vector<char> &room, LookUp look_up) {
    for (room.resize(std::max(room.size(), RecordBytes)); room.size() <= LargestRecordBytes;
         room.resize(room.size() * 2)) {
        Record *found = nullptr;
        const int error = look_up(name, &record, room.data(), room.size(), &found);
        if (error == EINTR) continue;
        if (error != ERANGE) return found;
    }
    return nullptr;
}

bool set_variable(const std::string &assignment) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0) return false;
    return setenv(assignment.substr(0, equals).c_str(), assignment.c_str() + equals + 1, 1) == 0;
}

}  // namespace

int VLibEGETENV_IBB(DP *, const VAR *name, VAR *target) {
    const char *value = std::getenv(name->str().c_str());
    *target = value ? VAR(value) : VAR("");
    return value ? 1 : 0;
}

VAR *VLibEGETENV_BBB(DP *dp, VAR *target, const VAR *name) {
    VLibEGETENV_IBB(dp, name, target);
    return target;
}

int VLibEPUTENV_IB(DP *, const VAR *assignment) { return set_variable(assignment->str()) ? 1 : 0; }

int VELDAputenv(DP *, const char *assignment) { return set_variable(assignment) ? 0 : EINVAL; }

const char *VELDAgetenv(DP *, const char *name) { return std::getenv(name); }

int VLibEGETCWD_IB(DP *, VAR *target) {
    std::error_code failed;
    const std::string path = std::filesystem::current_path(failed).string();
    *target = VAR(path);
    return failed ? 0 : 1;
}

int VELDAgetpid(DP *) { return getpid(); }

struct passwd *VELDAgetpwnam(DP *dp, const char *name) {
    FoundNames &found = dp->state<FoundNames>();
    return find_name(name, found.user, found.user_room, getpwnam_r);
}

struct group *VELDAgetgrnam(DP *dp, const char *name) {
    FoundNames &found = dp->state<FoundNames>();
    return find_name(name, found.group, found.group_room, getgrnam_r);
}

int VeldaIsAdminUser(DP *) { return geteuid() == 0 ? 1 : 0; }
