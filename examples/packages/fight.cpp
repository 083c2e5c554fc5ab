#include <sys/wait.h>
#include <unistd.h>

#include "actions.h"

namespace {

constexpr int Rounds = 500;
constexpr int Processes = 2;

struct Corner {
    std::string file, key;
    int refused = 0;  // times the lock was another's when it was asked for without waiting
    std::string seen_holder;
};

// Adds 1 to attribute 1 of the record, under its lock.
void add_one(DP *dp, const VAR &file, const VAR &key, Corner &corner) {
    VAR record, holder;
    int result = VLibFNEWREAD_IIBBBIB(dp, VELDA_READ_LOCK_NOWAIT, &file, &record, &key, 0, &holder);
    if (result == 2) {
        ++corner.refused;
        corner.seen_holder = holder.str();
        result = VLibFNEWREAD_IIBBBIB(dp, VELDA_READ_LOCK, &file, &record, &key, 0, nullptr);
    }
    record(1) = record(1).to_integer() + 1;
    VLibFNEWWRITE_IIBBBIB(dp, 0, &file, &record, &key, 0, nullptr);
}

void fight_in_process(DP *dp, void *argument) {
    Corner &corner = *static_cast<Corner *>(argument);
    VAR file;
    open_or_stop(file, corner.file);
    const VAR key = corner.key;
    for (int n = 0; n < Rounds; ++n) add_one(dp, file, key, corner);
    velda::crt_line("  port " + velda::system_number(101).str() + ": " + std::to_string(Rounds) + " updates, " +
                    std::to_string(corner.refused) + " times the lock was held by port " +
                    (corner.seen_holder.empty() ? "none" : corner.seen_holder));
}

// Asks for a lock that another process holds, without waiting, and shows who that is.
void ask_for_lock(DP *dp, void *argument) {
    const Corner &corner = *static_cast<Corner *>(argument);
    VAR file, record, holder;
    open_or_stop(file, corner.file);
    const VAR key = corner.key;
    const int result = VLibFNEWREAD_IIBBBIB(dp, VELDA_READ_LOCK_NOWAIT, &file, &record, &key, 0, &holder);
    velda::crt_line("  port " + velda::system_number(101).str() + ": result " + std::to_string(result) + ", record '" +
                    key.str() + "' is locked by port " + holder.str());
}

// Runs `body` as a command of a process of its own.
void start_process(void (*body)(DP *, void *), Corner corner) {
    if (fork() == 0) _exit(velda_run(velda_getdp(), "fight", body, &corner));
}

// True when all processes ended well.
bool wait_for_all() {
    bool well = true;
    for (int status; wait(&status) > 0;) well &= status == 0;
    return well;
}

}  // namespace

int fight(DP *dp, const std::string &file_name, const std::string &key_text) {
    VAR file;
    open_or_stop(file, file_name);
    const VAR key = key_text, zero = 0;
    VLibFNEWWRITE_IIBBBIB(dp, 0, &file, &zero, &key, 0, nullptr);
    const Corner corner{file_name, key_text, 0, ""};

    VAR record;
    VLibFNEWREAD_IIBBBIB(dp, VELDA_READ_LOCK, &file, &record, &key, 0, nullptr);
    start_process(ask_for_lock, corner);
    bool well = wait_for_all();
    VLibFRELEASE_IBB(dp, &file, &key);

    for (int n = 0; n < Processes; ++n) start_process(fight_in_process, corner);
    well &= wait_for_all();
    VLibFNEWREAD_IIBBBIB(dp, 0, &file, &record, &key, 0, nullptr);
    VLibFNEWDELETE_IIBBB(dp, 0, &file, &key, nullptr);
    velda::crt_line("  " + record(1).str() + " of " + std::to_string(Rounds * Processes) + " updates arrived");
    return !well || record(1).to_integer() != Rounds * Processes ? 1 : 0;
}
