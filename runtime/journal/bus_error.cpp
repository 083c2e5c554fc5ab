#include "runtime/journal/bus_error.h"

#include <csignal>
#include <mutex>

namespace velda::journal {

thread_local sigjmp_buf *bus_error_return = nullptr;

namespace {

struct sigaction action_before;

void pass_on(int number, siginfo_t *information, void *context) {
    if (action_before.sa_flags & SA_SIGINFO) return action_before.sa_sigaction(number, information, context);
    if (action_before.sa_handler != SIG_DFL && action_before.sa_handler != SIG_IGN)
        return action_before.sa_handler(number);
    signal(SIGBUS, SIG_DFL);  // the faulting instruction runs again and ends the process
}

void handle(int number, siginfo_t *information, void *context) {
    if (bus_error_return) siglongjmp(*bus_error_return, 1);
    pass_on(number, information, context);
}

}  // namespace

void catch_bus_errors() {
    static std::once_flag once;
    std::call_once(once, [] {
        struct sigaction action = {};
        action.sa_sigaction = handle;
        action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
        sigaction(SIGBUS, &action, &action_before);
    });
}

}  // namespace velda::journal
