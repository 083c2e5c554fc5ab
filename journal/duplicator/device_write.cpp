// Writing a stream of blocks: to files and devices one after another, the terminal, or a socket.
#include <algorithm>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <utility>

#include "journal/duplicator/device_stream.h"
#include "journal/duplicator/duplicator.h"
#include "journal/journal.h"

namespace velda::journal {

namespace {

constexpr int TerminalOutput = 1;
constexpr int WriteFailed = 5;    // error number
constexpr int NewFileMode = 438;  // octal 666
constexpr int EndRecordMarks = 5;

// The output of a run, and what writing to it needs.
struct Writing {
    DP *dp;
    DupContext &context;
    LogSelect &output;

    explicit Writing(DP *session) : dp(session), context(dup_context(session)), output(*context.output) {}

    std::size_t left() const {
        return output.buffer.empty() ? 0 : static_cast<std::size_t>(output.blockSize - output.bufferPosition);
    }
    std::string &name(std::int32_t index) const { return output.devices[static_cast<std::size_t>(index)]; }
};

// The status text of a scope's begin, shown again at its end.
class StatusTextScope {
  public:
    explicit StatusTextScope(DP *dp)
        : dp_(dp), text_(logger_text(dup_context(dp).slot->statusText, sizeof DupStatusSlot::statusText)) {}
    ~StatusTextScope() { set_status_text(dp_, text_); }
    StatusTextScope(const StatusTextScope &) = delete;
    StatusTextScope &operator=(const StatusTextScope &) = delete;

  private:
    DP *dp_;
    std::string text_;
};

void add_blocks(const Writing &writing, std::int64_t blocks) {
    const std::atomic_ref<std::uint64_t> shared(writing.context.slot->outputBlocks);
    shared.store(shared.load(std::memory_order_relaxed) + static_cast<std::uint64_t>(blocks),
                 std::memory_order_relaxed);
}

// Writes the header in front of what the block holds.
void stamp_block(LogSelect &output) {
    output.buffer.resize(static_cast<std::size_t>(output.blockSize));
    unsigned char *const block = output.buffer.data();
    std::memset(block, 0, BlockHeader::Bytes);
    std::memcpy(block + BlockHeader::Marker, BlockMarker.data(), BlockMarker.size());
    vputlong64(block + BlockHeader::TimeFirst, output.deviceStamp);
    vputint32(block + BlockHeader::BlockNumber, output.blockNumber);
    vputint32(block + BlockHeader::BlockSize, output.blockSize);
}

// --- writing a block ---

enum class Outcome { Written, NewDevice, RunEnds };

Outcome end_run(const Writing &writing, Severity severity, const char *message, int code) {
    DupReport(writing.dp, &writing.output, nullptr, severity, "%s", message);
    DupExit(writing.dp, code);
    return Outcome::RunEnds;  // the run was ending already
}

// Writes some of the bytes. Without a wait to a connection or pipe: -1 with EAGAIN when it has no room.
std::ptrdiff_t write_some(const Writing &writing, const unsigned char *bytes, std::size_t size) {
    constexpr std::size_t PipePageBytes = 4096;  // a pipe that is ready has room for as many
    const LogSelect &output = writing.output;
    if (output.deviceType == Socket) return velda_socket_send_more(writing.dp, output.fd, bytes, size);
    if (output.deviceType == Serial) return velda_write(writing.dp, output.fd, bytes, size);
    if (velda_socket_ready(writing.dp, output.fd, VELDA_SOCKET_OUTPUT))
        return velda_write(writing.dp, output.fd, bytes, std::min(size, PipePageBytes));
    errno = EAGAIN;
    return -1;
}

// Writes what is left of the block. 0 or the error. An end that takes nothing is waited for, but an operator may end the
// run meanwhile.
int write_rest(const Writing &writing, std::size_t &done) {
    const LogSelect &output = writing.output;
    while (done < output.buffer.size()) {
        errno = 0;
        const std::ptrdiff_t written = write_some(writing, output.buffer.data() + done, output.buffer.size() - done);
        if (written > 0) {
            done += static_cast<std::size_t>(written);
            continue;
        }
        if (output.deviceType != Serial && errno == EAGAIN)
            velda_socket_wait(writing.dp, output.fd, VELDA_SOCKET_OUTPUT);
        else if (errno != EINTR)
            return errno != 0 ? errno : WriteFailed;
        DupCallback(writing.dp, BetweenRecords);
        if (writing.context.exiting) return EINTR;
    }
    return 0;
}

bool is_reply(const char *reply, char letter) { return (reply[0] | 0x20) == (letter | 0x20) && reply[1] == 0; }

Outcome ask_after_write_error(const Writing &writing, int error, const char *name) {
    for (;;) {
        char reply[VELDA_LOGGER_REPLY_BYTES];
        if (VELDALoggerPromptReply(writing.dp, reply, DupCallback,
                                   "Error %d writing to device '%s'\n"
                                   "Enter R to retry , N to start new device or Q to quit : ",
                                   error, name) != 0)
            return end_run(writing, Severity::Error, "Unable to prompt terminal during a write error", ExitNoPrompt);
        if (is_reply(reply, 'Q')) return end_run(writing, Severity::Status, "Quit by operator", ExitQuit);
        if (is_reply(reply, 'N')) return Outcome::NewDevice;
        if (is_reply(reply, 'R')) return Outcome::Written;
    }
}

Outcome after_write_error(const Writing &writing, int error, std::int32_t index) {
    if (writing.output.deviceType != Serial) {
        const char *const where = writing.output.deviceType == Socket ? "socket" : "stdout";
        DupReport(writing.dp, &writing.output, nullptr, Severity::Error, "Error number %d writing to %s", error, where);
        DupExit(writing.dp, ExitWriteFailed);
        return Outcome::RunEnds;
    }
    const char *const name = writing.name(index).c_str();
    DupReport(writing.dp, &writing.output, nullptr, Severity::Warning, "Error number %d writing to '%s'", error, name);
    return ask_after_write_error(writing, error, name);
}

Outcome write_block(const Writing &writing, std::int32_t index) {
    std::size_t done = 0;  // a try after an error goes on where the last one stopped
    while (const int error = write_rest(writing, done)) {
        const Outcome outcome = after_write_error(writing, error, index);
        if (outcome != Outcome::Written) return outcome;
    }
    if (writing.output.deviceType == Socket) {
        writing.context.transfer.hasHeldBytes = true;
        DupReadMilestone(writing.dp, writing.context);
    }
    return Outcome::Written;
}

// --- the next device ---

// Whether the block that the file begins with has a stamp that this run gave to one of its devices.
bool holds_own_data(const Writing &writing, int descriptor) {
    std::vector<unsigned char> block(static_cast<std::size_t>(writing.output.blockSize));
    for (std::size_t done = 0; done < block.size();) {
        const std::ptrdiff_t got = velda_read(writing.dp, descriptor, block.data() + done, block.size() - done);
        if (got <= 0) return false;
        done += static_cast<std::size_t>(got);
    }
    if (!is_block_marker(block.data())) return false;
    const std::vector<std::int64_t> &stamps = writing.output.deviceStamps;
    const std::int64_t stamp = vgetlong64(block.data() + BlockHeader::TimeFirst);
    return stamp != 0 && std::find(stamps.begin(), stamps.end(), stamp) != stamps.end();
}

// The operator may have loaded a medium that this run has filled already.
bool is_own_volume(const Writing &writing, const std::string &name) {
    set_status_text(writing.dp, "OPENING output file");
    const int descriptor = VediWin32open(name.c_str(), VELDA_OPEN_READ | VELDA_OPEN_NO_WAIT, 0);
    if (descriptor < 0) return false;
    set_status_text(writing.dp, "READING header from output file");
    const bool holds = holds_own_data(writing, descriptor);
    VediWin32close(descriptor);
    if (holds)
        VELDAfprintf(writing.dp, stderr,
                     "Error! File '%s' appears to have valid data created by this process already\n", name.c_str());
    return holds;
}

bool open_output(const Writing &writing, std::int32_t index) {
    const std::string &name = writing.name(index);
    if (is_own_volume(writing, name)) return false;
    writing.output.fd =
        VediWin32open(name.c_str(), VELDA_OPEN_WRITE | VELDA_OPEN_CREATE | VELDA_OPEN_TRUNCATE, NewFileMode);
    if (writing.output.fd >= 0) return true;
    DupReport(writing.dp, &writing.output, nullptr, Severity::Warning, "Error number %d while opening output file '%s'",
              errno, name.c_str());
    return false;
}

// Asks until the operator says that the device is ready.
Outcome ask_for_device(const Writing &writing, std::int32_t index) {
    constexpr const char *NoPrompt = "Unable to prompt terminal for a new output device";
    for (;;) {
        char reply[VELDA_LOGGER_REPLY_BYTES];
        if (VELDALoggerPromptReply(writing.dp, reply, DupCallback,
                                   "Waiting to open output device '%s'\n"
                                   "Enter C to continue, R to rename or Q to quit : ",
                                   writing.name(index).c_str()) != 0)
            return end_run(writing, Severity::Error, NoPrompt, ExitNoPrompt);
        if (is_reply(reply, 'Q')) return end_run(writing, Severity::Status, "Quit by operator", ExitQuit);
        if (is_reply(reply, 'C')) return Outcome::NewDevice;
        if (!is_reply(reply, 'R')) continue;
        if (VELDALoggerPromptReply(writing.dp, reply, DupCallback, "Enter name of new file to write to : ") != 0)
            return end_run(writing, Severity::Error, NoPrompt, ExitNoPrompt);
        if (reply[0] != 0) writing.name(index) = reply;
    }
}

void close_output(const Writing &writing) {
    LogSelect &output = writing.output;
    if (output.fd <= 2) return;
    set_status_text(writing.dp, "CLOSING and rewinding output file");
    if (VediWin32close(output.fd) != 0)
        DupReport(writing.dp, &output, nullptr, Severity::Warning, "Error number %d closing the output file", errno);
    output.fd = -1;
}

// Opens the file or device behind the one of that index. False when the run ends instead.
bool open_next_device(const Writing &writing, std::int32_t &index) {
    close_output(writing);
    if (++index >= static_cast<std::int32_t>(writing.output.devices.size())) index = 0;
    for (bool asks = writing.output.flags & SelectPrompt;; asks = true) {
        if (asks && ask_for_device(writing, index) == Outcome::RunEnds) return false;
        if (open_output(writing, index)) return true;
    }
}

// Begins the stream on another device. What the block holds stays in it, under a new header.
bool change_device(const Writing &writing, std::int32_t index) {
    LogSelect &output = writing.output;
    output.deviceIndex = DeviceInChange;
    if (output.deviceType == Serial) {
        if (!open_next_device(writing, index)) return false;
    } else {
        index = 0;
        if (output.deviceType == Tty && output.fd < 0) output.fd = TerminalOutput;
    }
    output.blockNumber = 0;
    output.deviceStamp = present_time();
    output.deviceStamps.resize(std::max(output.devices.size(), std::size_t{1}));
    output.deviceStamps[static_cast<std::size_t>(index)] = output.deviceStamp;
    output.deviceIndex = index;
    stamp_block(output);
    return true;
}

// --- records ---

void flush_block(const Writing &writing, bool new_device) {
    DP *const dp = writing.dp;
    LogSelect &output = writing.output;
    assert(is_block_size(output.blockSize));
    const StatusTextScope status(dp);
    const std::int32_t index = output.deviceIndex;
    if (index < 0) {
        // While a device is being changed what comes in meanwhile, the end of a run that is given up, has no place.
        if (index == DeviceInChange || change_device(writing, index)) DupInitBlock(dp);
        return;
    }
    if (output.bufferPosition <= static_cast<std::int32_t>(BlockHeader::Bytes)) return;
    std::fill(output.buffer.begin() + output.bufferPosition, output.buffer.end(), static_cast<unsigned char>(0));
    output.deviceIndex = DeviceInChange;
    set_status_text(dp, "WRITING to serial device");
    const Outcome outcome = write_block(writing, index);
    if (outcome == Outcome::RunEnds) return;
    if (outcome == Outcome::NewDevice) {
        // The block did not get out: it is the first of the new device.
        if (change_device(writing, index)) flush_block(writing, new_device);
        return;
    }
    add_blocks(writing, 1);
    if (!new_device) {
        ++output.blockNumber;
        output.deviceIndex = index;
    } else if (!change_device(writing, index)) {
        return;
    }
    DupInitBlock(dp);
}

void copy_bytes(const Writing &writing, std::string_view bytes) {
    LogSelect &output = writing.output;
    // A reader finds records by headers that stand in one block.
    if (writing.left() < RecordHeader::Bytes) flush_block(writing, false);
    while (!bytes.empty()) {
        if (writing.left() == 0) flush_block(writing, false);
        const std::size_t piece = std::min(bytes.size(), writing.left());
        std::memcpy(output.buffer.data() + output.bufferPosition, bytes.data(), piece);
        output.bufferPosition += static_cast<std::int32_t>(piece);
        bytes.remove_prefix(piece);
    }
}

bool ends_transaction(RecordType type) { return type >= RecordType::TranStart && type <= RecordType::TranAbort; }

bool is_to_be_flushed(const LogSelect &output, const unsigned char *record) {
    if (!(record[RecordHeader::Flags] & FlushDevice)) return false;
    return !(output.flags & SelectNoFlush) || !ends_transaction(RecordType{record[RecordHeader::Type]});
}

void end_full_device(const Writing &writing) {
    const LogSelect &output = writing.output;
    if (output.deviceType != Serial || output.blockMax <= 0 || output.blockNumber + 1 < output.blockMax) return;
    if (writing.context.transfer.isEndingDevice) return;
    write_end_record(writing.dp);
    DupFlushBlock(writing.dp, true);
}

}  // namespace

void DupInitBlock(DP *dp) {
    LogSelect &output = *dup_context(dp).output;
    stamp_block(output);
    output.bufferPosition = BlockHeader::Bytes;
}

void DupFlushBlock(DP *dp, bool new_device) {
    const Writing writing(dp);
    bool &has_held_bytes = writing.context.transfer.hasHeldBytes;
    flush_block(writing, new_device);
    if (std::exchange(has_held_bytes, false)) velda_socket_push(dp, writing.output.fd);
}

void DupWriteDevice(DP *dp, const unsigned char *record) {
    const Writing writing(dp);
    if (record[RecordHeader::Type] == static_cast<unsigned char>(RecordType::Flush)) return DupFlushBlock(dp, false);
    const auto size = static_cast<std::size_t>(vgetint32(record + RecordHeader::RecordSize));
    const std::string_view bytes(reinterpret_cast<const char *>(record), size);
    // Deliberately exact: any other flag beside it, such as that of "noflush" or "prompt", leaves the transfer in clear.
    if (writing.output.flags == SelectEncrypt) {
        const std::string envelope = sealed(dp, writing.output, bytes);
        if (envelope.empty()) {
            DupReport(dp, &writing.output, record, Severity::Error, "A record cannot be enciphered: %s",
                      velda_crypt_error(dp));
            return DupExit(dp, ExitWriteFailed);
        }
        copy_bytes(writing, envelope);
    } else {
        copy_bytes(writing, bytes);
    }
    if (is_to_be_flushed(writing.output, record)) DupFlushBlock(dp, false);
    end_full_device(writing);
}

void write_end_record(DP *dp) {
    constexpr std::size_t Bytes = RecordHeader::Bytes + EndRecordMarks + RecordTrailerBytes;
    static_assert(Bytes == 61);
    unsigned char record[Bytes] = {};
    std::memcpy(record, RecordMarker.data(), RecordMarker.size());
    vputlong64(record + RecordHeader::UpdateTime, present_time());
    vputint32(record + RecordHeader::Pid, VELDAgetpid(dp));
    record[RecordHeader::Type] = static_cast<unsigned char>(RecordType::Eof);
    vputint32(record + RecordHeader::Port, VELDAGetPortNumber(dp));
    vputint32(record + RecordHeader::RecordSize, Bytes);
    vputint32(record + RecordHeader::StringsSize, EndRecordMarks);
    std::memset(record + RecordHeader::Bytes, AM, EndRecordMarks);
    std::memcpy(record + Bytes - RecordTrailerBytes, record + RecordHeader::UpdateTime, RecordTrailerBytes);
    bool &is_ending = dup_context(dp).transfer.isEndingDevice;
    const bool was_ending = is_ending;
    is_ending = true;
    DupWriteDevice(dp, record);
    is_ending = was_ending;
}

void end_stream(DP *dp, bool waits_for_receiver) {
    DupContext &context = dup_context(dp);
    write_end_record(dp);
    DupFlushBlock(dp, false);
    const LogSelect &output = *context.output;
    if (output.deviceType != Socket || output.deviceIndex < 0) return;
    velda_socket_end_output(dp, output.fd);
    // The connection stays until the receiver has closed it: what it still sends to an end that is gone would cut off
    // what it has not received yet.
    while (waits_for_receiver) {
        const bool is_ready = velda_socket_wait(dp, output.fd, VELDA_SOCKET_INPUT) == 0;
        if (is_ready ? !take_milestones(dp, context) : errno != EAGAIN || context.slot->killerPid != 0) return;
    }
}

}  // namespace velda::journal
