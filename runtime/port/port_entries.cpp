// The entries of the port family, and the SYSTEM numbers that it answers.
#include <signal.h>

#include <cerrno>

#include "runtime/port/port.h"
#include "runtime/port/session_port.h"
#include "runtime/process/context.h"
#include "runtime/process/system_numbers.h"

using namespace velda;

namespace {

enum KillKind { KillPort = 0, KillProcess = 1 };

const SystemNumberProvider port_number(101, [](DP *dp, VAR &target) { target = VAR(VELDAGetPortNumber(dp)); });

const SystemNumberProvider process_records(1027, [](DP *dp, VAR &target) {
    const auto directory = port_directory(dp);
    if (!directory) dp->last_error = directory.error().number;
    target = VAR(directory ? *directory : std::string());
});

}  // namespace

extern "C" {

int VELDAGetPortNumber(DP *dp) { return session_port_or_report(dp); }

int VELDAThreadSendMessage(DP *dp, int port, const char *text) {
    const auto sent = send_message(dp, port, text);
    return sent ? 0 : dp->last_error = sent.error().number;
}

int VELDAKillProcess(DP *dp, int signal_number, int number, int kind) {
    if (kind != KillPort && kind != KillProcess) return EINVAL;
    pid_t process = number;
    if (kind == KillPort) {
        const auto owner = port_owner(dp, number);
        if (!owner) return ESRCH;
        process = owner->pid;
    }
    if (process < 1) return EINVAL;
    return kill(process, signal_number) == 0 ? 0 : errno;
}

}  // extern "C"
