// facade.h - words for ports. They work on the calling thread's context.
#ifndef VELDA_RUNTIME_PORT_FACADE_H
#define VELDA_RUNTIME_PORT_FACADE_H

#include "runtime/port/port.h"

extern "C" VELDA_EXPORT DP *velda_getdp(void);

namespace velda {

// This session's port; -1 when it can have none, which was reported.
inline int port_number() { return VELDAGetPortNumber(velda_getdp()); }

// Sends text to a port: 0 or an error number.
inline int send_to_port(int port, const char *text) { return VELDAThreadSendMessage(velda_getdp(), port, text); }

// Sends a signal to a process, or to the process of a port: 0 or an error number.
inline int signal_process(int signal_number, int pid) { return VELDAKillProcess(velda_getdp(), signal_number, pid, 1); }
inline int signal_port(int signal_number, int port) { return VELDAKillProcess(velda_getdp(), signal_number, port, 0); }

}  // namespace velda

#endif
