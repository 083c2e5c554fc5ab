// log_select.h - one selection of journal records, or the target of a transfer: the state behind VELDALoggerSelectStart.
// Private to the subsystem.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "journal/log_reading.h"
#include "runtime/journal/config_record.h"
#include "runtime/vutil.h"

namespace velda::journal {

// Values of LogSelect::deviceType; 0 until one is chosen.
enum DeviceType : std::uint32_t { Serial = 1, Tty = 2, LogSetDevice = 4, Database = 8, Null = 16, Socket = 32 };

// Devices that carry a stream of blocks of their own.
inline constexpr std::uint32_t StreamDevices = Serial | Tty | Socket;

// Bits of LogSelect::flags. EOS and WAIT together: wait until the writer leaves the set.
enum SelectFlag : std::uint32_t {
    SelectEos = 1,                // stop at the end of the set
    SelectEof = 2,                // go on through later sets, stop when none is left
    SelectWait = 4,               // wait for more records
    SelectNoFlush = 8,            // suppress flushes at transaction boundaries
    SelectNoTrans = 16,           // ignore transaction boundaries
    SelectPrompt = 32,            // ask before switching devices
    SelectEncrypt = 64,           // encipher the transfer
    SelectSkipToCheckpoint = 128  // skip records until a checkpoint is seen
};

// Why a selection stopped: values of errno without SelectStopped, which VELDALoggerReadnext adds. The low byte is 2.
enum StopReason : int {
    StopEndOfSet = 514,  // or logging is off
    StopTimeout = 770,
    StopNoLaterSet = 1026,
    StopNoSet = 1282,
    StopPastEndTime = 1538,
    StopReadFailed = 1794
};
inline constexpr int SelectStopped = 2048;
inline constexpr int NotMapped = 258;        // VELDALoggerReadnext without a journal
inline constexpr int ReadingStopped = 2013;  // after a damaged record

// LogSelect::set before a set is chosen.
inline constexpr std::int32_t SetNotChosen = -1, SetAuto = -2;
// LogSelect::deviceIndex outside of a device.
inline constexpr std::int32_t NoDevice = -1, DeviceInChange = -2, SocketAtStart = -3;

// A record's header has to fit into one block, and blocks are held in memory.
inline constexpr std::int32_t SmallestBlockBytes = 28 + 48, LargestBlockBytes = std::int32_t{64} << 20;
inline bool is_block_size(std::int32_t bytes) { return bytes >= SmallestBlockBytes && bytes <= LargestBlockBytes; }

struct RenamePair {
    std::string from;
    std::string to;
};

// The socket on which a receiver waits for its sender.
struct ListeningSocket {
    ListeningSocket() = default;
    ListeningSocket(const ListeningSocket &) = delete;
    ListeningSocket &operator=(const ListeningSocket &) = delete;
    ~ListeningSocket() {
        if (descriptor >= 0) velda_socket_close(velda_getdp(), descriptor);
    }
    int descriptor = -1;
};

}  // namespace velda::journal

// Which fields belong to a log set, a device or a socket is told by the comments of each group.
struct LogSelect {
    std::string specText;  // the specification as given
    std::uint32_t deviceType = 0;
    std::int64_t startTime = 0;  // records before this are skipped; 0: none are
    std::int64_t endTime = 0;    // reading stops after this; 0: never
    std::uint32_t flags = 0;
    std::uint32_t setSwitched = 0;  // log set: its end has been seen
    std::int64_t recordsRead = 0;   // log set: records taken from this set
    std::int64_t blockCount = 0;    // device: blocks read
    std::int64_t byteCount = 0;     // reduced when a transaction is dropped

    // Devices.
    std::vector<std::string> devices;
    std::vector<std::int64_t> deviceStamps;  // when each was opened for writing
    std::int32_t fd = -1;                    // -1: none is open
    std::int32_t deviceIndex = velda::journal::NoDevice;
    std::int32_t blockSize = 0;
    std::int32_t blockMax = 0;  // size of a device in blocks; 0: unknown
    std::int32_t blockNumber = 0;
    std::int64_t deviceStamp = 0;
    std::vector<unsigned char> buffer;  // the current block
    std::int32_t bufferPosition = 0;

    // Socket.
    std::string hostName;
    bool hostNameGiven = false;
    std::uint16_t port = 0;
    velda::journal::ListeningSocket listener;  // input

    // Log set.
    std::int64_t setFirstTime = 0;  // timeFirst of the set being read
    std::int32_t set = velda::journal::SetNotChosen;
    std::int32_t file = 0;  // position: index of the file, from 0, and offset in it
    std::int64_t offset = 0;
    std::int32_t timeout = 0;    // seconds to wait in all; 0: no limit
    std::int64_t waitStart = 0;  // when the present wait began
    std::int32_t retry = 5;      // seconds between tries

    // Transfer.
    std::uint32_t scheme = 6;
    std::string key;
    std::vector<velda::journal::RenamePair> renames;
    std::uint32_t sendMilestone = 0;  // input socket: send milestones
    std::string milestoneFile;        // output socket: the file to update
};

namespace velda::journal {

// Reports a fault of the specification that is being read: "Error: ", the token if one is current, and the message, to
// the caller's error text or else as a line on standard error. errno becomes 22.
void LoggerSpecError(DP *dp, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The set with the smallest time among those that hold records, the lower number where times are equal; the current set
// where none holds any.
std::int32_t eldest_set(const VELDALoggerConfig &config);

// Completes an input selection of a log set: the set that holds the start time, its time, and when to stop. `set` is
// what the specification chose: a number, SetAuto or SetNotChosen. Gives null, or what is wrong.
const char *choose_set(const VELDALoggerConfig &config, LogSelect &select);

// Whether damaged records are passed over. On in a new process; an output specification switches it off unless a
// specification has said what it is to be.
bool skips_damaged_records();

// A stamp as people read it: local time and date, "14:05:09 21 NOV 2026".
std::string readable_time(DP *dp, std::int64_t stamp);

}  // namespace velda::journal
