// service_thread.h - threads that serve the process beside its sessions.
#pragma once

#include <functional>
#include <thread>

#include "runtime/vdefc.h"

namespace velda {

// Starts a thread that takes no signals: they belong to the session's own threads, and have to interrupt what these wait
// for. Returns when the body is about to run, so that a fork by the caller never meets a thread that is half made and holds
// a lock of the memory allocator. Throws std::system_error when no thread can be had.
[[nodiscard]] VELDA_EXPORT std::thread service_thread(std::function<void()> body);

}  // namespace velda
