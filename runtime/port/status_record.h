// status_record.h - the status record of a port: what a session shows of itself to others. Private to the folder.
//
// It is a dynamic array, kept as a text file (a line an attribute) in the directory of the process records, so that a
// program can open that directory as a file and read it. The first ten attributes are the session's; the others belong
// to whoever defines them, as the spooler does attribute 25.
#pragma once

#include <string>
#include <string_view>
#include <vector>

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

// The record of a session that begins now.
std::string new_status_record(DP *dp, int port);

// `record` with the session's command and directory brought up to date, all else kept.
std::string with_command(std::string_view record, std::string_view command);

// One attribute of a record, "" when it has not as many.
std::string_view status_attribute(std::string_view record, int attribute);

// Replaces the record's file as a whole; a reader sees the old record or the new one.
Result<void> write_status_record(const std::string &directory, int port, std::string_view record);
// The record, "" when there is none.
std::string read_status_record(const std::string &directory, int port);

}  // namespace velda::port
