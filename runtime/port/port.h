// port.h - the port of a session, messages and signals to other ports, for C and C++.
//
// A port is the number of a session: of one context of one process. It is taken at its first need and given back when
// the context ends or its process or thread dies. The environment variable VBCPORTNO names the ports that a session may
// have: a number, a range "first-last", or several with commas between; without it the first free one of 1 to 999 and
// 10000 to 99999 is taken.
//
// SYSTEM(101) is VELDAGetPortNumber. SYSTEM(1027) is the directory of the process records: one record for each living
// port under its number, whose attributes are
//    1 port                     6 account
//    2 process id               7 current directory
//    3 when it connected        8 current command
//    4 user                     9 when the command began (seconds since 1970)
//    5 terminal                10 number of the context in its process
//   25 report channel assignments, kept by the spooler
// Attribute 3 is in seconds since 1970 with microseconds, and differs for each session that has had the port.
#ifndef VELDA_RUNTIME_PORT_PORT_H
#define VELDA_RUNTIME_PORT_PORT_H

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// The session's port number. -1 when no port can be had: the first time the reason is printed, such as "port number 5
// is in use by process 1234: ...", and SYSTEM(0) has the error number.
VELDA_EXPORT int VELDAGetPortNumber(DP *dp);

// Sends text to a port. It waits in the port's queue until the session shows it at its next input; text that begins
// with "VMSG:" is shown without that word. Never waits for the receiver. 0, or an error number: 3 nobody has that port,
// 7 the text is longer than a megabyte, 11 the port has too many messages waiting.
VELDA_EXPORT int VELDAThreadSendMessage(DP *dp, int port, const char *text);

// Sends a signal. With kind 1 `number` is a process id, with kind 0 a port, whose process gets the signal. 0, or an
// error number: 3 no such process or nobody has that port, 1 not permitted, 22 a bad signal, kind or number (process
// groups, which are numbers below 1, cannot be reached).
VELDA_EXPORT int VELDAKillProcess(DP *dp, int signal_number, int number, int kind);

#ifdef __cplusplus
}
#endif

#endif
