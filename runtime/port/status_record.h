// status_record.h - the status record of a port: what a session shows of itself to others. Private to the folder.
//
// A session keeps its ten attributes in the shared memory of the lock table, where a change costs next to nothing. Who
// asks for the directory of the process records has them written there as records of a directory file (a line an
// attribute), so that a program can open it and read them. A record's further attributes belong to whoever defines
// them, as the spooler does attribute 25: they stay when the session's own change, and go with the session.
#pragma once

#include <string>
#include <string_view>

#include "runtime/base/result.h"
#include "runtime/vdefc.h"

namespace velda::port {

enum StatusAttribute {
    StatusPort = 1,
    StatusProcess = 2,
    StatusConnected = 3,  // seconds since 1970 with microseconds: no two sessions of a port have the same
    StatusUser = 4,
    StatusTerminal = 5,
    StatusAccount = 6,
    StatusDirectory = 7,
    StatusCommand = 8,
    StatusCommandBegan = 9,  // seconds since 1970
    StatusContext = 10,      // DP::serial in its process
    StatusOwnAttributes = 10,
    StatusReportChannels = 25
};

// The own attributes of a session that begins now.
std::string new_status(DP *dp, int port);

// The same with command and current directory brought up to date. Both are cut where the whole would be longer than an
// owner's notes.
std::string with_command(std::string_view status, std::string_view command);

// `record` with its first attributes replaced by a session's own; nothing else of it stays when it is the record of
// another session.
std::string merged(std::string_view record, std::string_view status);

// One attribute of a record, "" when it has not as many.
std::string_view status_attribute(std::string_view record, int attribute);

// Replaces the record's file as a whole; a reader sees the old record or the new one.
Result<void> write_status_record(const std::string &directory, int port, std::string_view record);
// The record, "" when there is none.
std::string read_status_record(const std::string &directory, int port);

}  // namespace velda::port
