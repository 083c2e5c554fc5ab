// WHO, LISTU, LIST-LOCKS, vkill.
#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstring>

#include "commands/actions.h"
#include "commands/operands.h"
#include "commands/table_output.h"
#include "runtime/lock/lock.h"
#include "runtime/port/port.h"

namespace velda::commands {

namespace {

// Attributes of a port's record in the directory of the process records.
enum PortAttribute {
    PortNumber = 1,
    PortPid,
    PortConnected,
    PortUser,
    PortTerminal,
    PortAccount,
    PortDirectory,
    PortCommand
};

constexpr Column PortColumns[] = {
    {PortNumber, "Port", "port", true},         {PortPid, "Process", "pid", true},
    {PortUser, "User", "user", false},          {PortTerminal, "Terminal", "terminal", false},
    {PortAccount, "Account", "account", false}, {PortDirectory, "Directory", "directory", false},
    {PortCommand, "Command", "command", false},
};

// Values of a lock in the report of the lock table.
enum LockValue {
    LockPort = 1,
    LockExecution,
    LockKey,
    LockType,
    LockInode,
    LockDevice,
    LockPid,
    LockAddress,
    LockWaiters
};

constexpr Column LockColumns[] = {
    {LockPort, "Port", "port", true},
    {LockPid, "Process", "pid", true},
    {LockType, "Type", "type", false},
    {LockKey, "Key", "key", false},
    {LockInode, "Inode", "inode", true},
    {LockDevice, "Device", "device", true},
    {LockWaiters, "Waiting ports", "waiting", false},
};

// The records of the living ports, by port number.
std::vector<VAR> port_records(DP *dp) {
    VELDAGetPortNumber(dp);
    const VAR directory = system_number(1027);
    VAR file, list, key, record;
    if (VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &directory, &file, nullptr) != 1)
        fail("Cannot open the process records in '" + directory.str() + "'");
    std::vector<VAR> records;
    VLibFSELECT_IBBB(dp, &file, &list, nullptr);
    while (VLibFREADNEXT_IBBBBB(dp, &key, nullptr, nullptr, &list, nullptr) == 1) {
        if (is_num(key) && VLibFNEWREAD_IIBBBIB(dp, 0, &file, &record, &key, 0, nullptr) == 1)
            records.push_back(record);
    }
    std::sort(records.begin(), records.end(), [](const VAR &a, const VAR &b) {
        return VAR(a(PortNumber)).to_integer() < VAR(b(PortNumber)).to_integer();
    });
    return records;
}

// One row a lock, its values raised to attributes as a table wants them. The key of an execution lock is its number.
std::vector<VAR> lock_records(DP *dp) {
    VAR report;
    if (const int error = VELDAReturnLockInfo(dp, 101, &report))
        fail(std::string("Cannot read the lock table: ") + std::strerror(error));
    std::vector<VAR> rows;
    for (int n = 1; n <= dcount(report, AM); ++n) {
        VAR row = raise(report(n));
        if (row(LockType) == "E") row(LockKey) = row(LockExecution);
        rows.push_back(std::move(row));
    }
    return rows;
}

void show_table(const Words &words, std::string_view command, std::span<const Column> columns,
                const std::vector<VAR> &rows) {
    Words operands = words;
    const bool as_json = take_option(operands, "--json");
    if (!operands.empty()) usage_error(command, "'" + operands[0] + "' is not expected");
    crt(as_json ? table_as_json(columns, rows) : table_for_people(columns, rows));
}

struct KillOptions {
    bool test = false;
    bool verbose = false;
    int signal = SIGTERM;
};

KillOptions kill_options(const Words &options) {
    KillOptions result;
    for (const std::string &option : options) {
        if (option == "-t")
            result.test = true;
        else if (option == "-v")
            result.verbose = true;
        else if (option == "--")
            continue;
        else if (is_num(option.substr(1)))
            result.signal = static_cast<int>(VAR(option.substr(1)).to_integer());
        else
            usage_error("vkill", "unknown option '" + option + "'");
    }
    return result;
}

// The whole word as a process id; 0 when it is none.
int process_id(const std::string &word) {
    int pid = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), pid);
    return error == std::errc() && end == word.data() + word.size() && pid > 0 ? pid : 0;
}

}  // namespace

void who(DP *dp, const Words &words) {
    if (!words.empty()) usage_error("WHO", "'" + words[0] + "' is not expected");
    crt_line(cat(VELDAGetPortNumber(dp), " ", system_number(1015), " ", system_number(19)));
}

void list_users(DP *dp, const Words &words) { show_table(words, "LISTU", PortColumns, port_records(dp)); }

void list_locks(DP *dp, const Words &words) { show_table(words, "LIST-LOCKS", LockColumns, lock_records(dp)); }

void kill_process(DP *dp, const Words &words) {
    Words operands = words;
    const KillOptions options = kill_options(take_options(operands));
    if (operands.size() != 1) usage_error("vkill", "one process id is needed");
    const int pid = process_id(operands[0]);
    if (pid == 0) usage_error("vkill", "'" + operands[0] + "' is not a process id");
    if (const int error = VELDAKillProcess(dp, options.test ? 0 : options.signal, pid, 1)) {
        fail("vkill: process " + operands[0] + ": " + std::strerror(error));
    }
    if (options.verbose)
        crt_line("process " + operands[0] + ": signal " + std::to_string(options.test ? 0 : options.signal) + " sent");
}

}  // namespace velda::commands
