// bus_error.h - stores into a mapped file that may have been cut short by somebody else. Private to the folder.
#pragma once

#include <csetjmp>

namespace velda::journal {

// Where the calling thread goes on when a store fails; null when it is in no such store.
extern thread_local sigjmp_buf *bus_error_return;

// Sets up the handler, once in a process; other bus errors go to the handler that was there before.
void catch_bus_errors();

// Runs `body`, which only stores bytes: nothing in it needs a destructor. False when a page was not there.
template <class Body>
bool survives_bus_error(Body &&body) {
    sigjmp_buf here;
    if (sigsetjmp(here, 0) != 0) {
        bus_error_return = nullptr;
        return false;
    }
    bus_error_return = &here;
    body();
    bus_error_return = nullptr;
    return true;
}

}  // namespace velda::journal
