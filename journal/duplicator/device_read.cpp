// Reading a stream of blocks: from a file or device, the terminal, or a socket.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "journal/duplicator/device_stream.h"
#include "journal/duplicator/duplicator.h"
#include "journal/journal.h"
#include "journal/log_record.h"

namespace velda::journal {

namespace {

constexpr int TerminalInput = 0;
constexpr int ReadFailed = 5, Absent = 2, Invalid = 22, Damaged = 74;  // error numbers

bool is_socket(const LogSelect &select) { return select.deviceType == Socket; }

std::string device_name(const LogSelect &select) {
    if (is_socket(select)) return "socket";
    if (select.deviceType == Tty) return "terminal";
    const auto index = static_cast<std::size_t>(std::max(select.deviceIndex, 0));
    return index < select.devices.size() ? select.devices[index] : "";
}

// A selection being read, and who is told of it.
struct Reading {
    DP *dp;
    LogSelect &select;
    VELDALoggerCallback callback;

    void tell(int code) const {
        if (callback) callback(dp, code);
    }
    template <class... Arguments>
    void complain(const char *format, Arguments... arguments) const {
        if (callback) return callback(dp, ErrorText, format, arguments...);
        VELDAfprintf(dp, stderr, format, arguments...);
        VELDAfprintf(dp, stderr, "\n");
    }
    // A wait was interrupted: whoever is told may end the run, else reading goes on.
    void interrupted() const {
        tell(BetweenRecords);
        VLibSignalTest(dp);
    }
    // Until there is something to read, or a connection to take, or the descriptor fails.
    void wait_for(int descriptor) const {
        while (velda_socket_wait(dp, descriptor, VELDA_SOCKET_INPUT) != 0 && (errno == EINTR || errno == EAGAIN))
            interrupted();
    }
};

// --- blocks ---

int open_device(Reading &reading) {
    LogSelect &select = reading.select;
    if (select.deviceType == Tty) {
        select.fd = TerminalInput;
        return 0;
    }
    if (is_socket(select)) return 0;
    select.deviceIndex = std::max(select.deviceIndex, 0);
    select.fd = VediWin32open(device_name(select).c_str(), VELDA_OPEN_READ, 0);
    return select.fd >= 0 ? 0 : errno;
}

// Before a wait for the other end: what an output still holds goes on its way.
void await_input(const Reading &reading) {
    const int descriptor = reading.select.deviceType == Tty ? TerminalInput : reading.select.fd;
    if (descriptor < 0 || reading.select.deviceType == Serial) return;
    if (velda_socket_ready(reading.dp, descriptor, VELDA_SOCKET_INPUT)) return;
    reading.tell(WaitBegins);
    reading.wait_for(descriptor);
    reading.tell(WaitEnds);
}

int read_bytes(const Reading &reading) {
    LogSelect &select = reading.select;
    const auto size = static_cast<std::size_t>(select.blockSize);
    select.buffer.resize(size);
    for (std::size_t done = 0; done < size;) {
        if (select.deviceType != Serial) reading.wait_for(select.fd);
        errno = 0;
        const std::ptrdiff_t got = velda_read(reading.dp, select.fd, select.buffer.data() + done, size - done);
        if (got > 0) {
            done += static_cast<std::size_t>(got);
        } else if (errno == EINTR) {
            reading.interrupted();
        } else if (errno != 0) {
            return errno;
        } else {
            return is_socket(select) ? VELDA_SOCKET_RESET : ReadFailed;
        }
    }
    return 0;
}

// Whether the block belongs to the stream. That a block has the marker and the size is our own rule: what is no stream
// is refused at its first block.
int check_block(const Reading &reading, bool is_first) {
    LogSelect &select = reading.select;
    const unsigned char *const block = select.buffer.data();
    const std::int64_t stamp = vgetlong64(block + BlockHeader::TimeFirst);
    if (!is_first && !is_socket(select) && stamp != select.deviceStamp) {
        reading.complain("Error! The time stamp verification do not match. The device is corrupt");
        return Invalid;
    }
    if (!is_block_marker(block)) {
        reading.complain("Error! The data of '%s' are not blocks of a journal stream", device_name(select).c_str());
        return Invalid;
    }
    const std::int32_t block_bytes = vgetint32(block + BlockHeader::BlockSize);
    if (block_bytes != select.blockSize) {
        reading.complain("Error! The blocks of '%s' have %d bytes and not %d, give blocksize=%d",
                         device_name(select).c_str(), block_bytes, select.blockSize, block_bytes);
        return Invalid;
    }
    select.deviceStamp = stamp;
    return 0;
}

void close_device(LogSelect &select) {
    if (select.fd > 2) VediWin32close(select.fd);
    select.fd = -1;
}

int fill_block(Reading &reading) {
    LogSelect &select = reading.select;
    // A device of which not even the first block could be read is opened again at the next try.
    const bool is_first = select.fd == -1;
    int error = is_first ? open_device(reading) : 0;
    if (error == 0) error = read_bytes(reading);
    if (error == 0) error = check_block(reading, is_first);
    if (error != 0) {
        if (is_first && select.deviceType == Serial) close_device(select);
        select.bufferPosition = select.blockSize;
        return error;
    }
    select.bufferPosition = BlockHeader::Bytes;
    ++select.blockCount;
    return 0;
}

// --- records ---

class StreamReader {
  public:
    StreamReader(Reading &reading, LoggerContext &context)
        : reading_(reading), select_(reading.select), context_(context) {}

    // The next whole record, also that of type 1, in the record buffer; null with errno.
    const unsigned char *next() {
        context_.hasRecord = false;
        while (find_letter()) {
            const unsigned char *const found = position();
            if (const auto envelope = envelope_header(found)) {
                if (!take_envelope(*envelope)) return nullptr;
            } else if (is_record_header(found)) {
                if (!take_record()) return nullptr;
            } else {
                VELDAfprintf(reading_.dp, stderr, "Velda: TJ Search error -- continue searching\n");
                select_.bufferPosition += 2;
                continue;
            }
            if (is_finished()) return context_.recordBuffer;
        }
        return nullptr;
    }

  private:
    const unsigned char *position() const { return select_.buffer.data() + select_.bufferPosition; }
    std::size_t left() const {
        return select_.buffer.empty() ? 0 : static_cast<std::size_t>(select_.blockSize - select_.bufferPosition);
    }
    bool fill() {
        const int error = LoggerFillBlock(reading_.dp, &select_, reading_.callback);
        errno = error;
        return error == 0;
    }

    // Moves to the next place where a header may begin: the first letter of the markers, with a whole record header left
    // in the block, for the writer never divides one.
    bool find_letter() {
        for (;;) {
            if (left() < RecordHeader::Bytes && !fill()) return false;
            const auto *const letter =
                static_cast<const unsigned char *>(std::memchr(position(), RecordMarker.front(), left()));
            select_.bufferPosition =
                letter ? static_cast<std::int32_t>(letter - select_.buffer.data()) : select_.blockSize;
            if (left() >= RecordHeader::Bytes) return true;
        }
    }

    // Hands the next `count` bytes of the stream on, piece by piece as they arrive.
    template <class Keep>
    bool take(std::size_t count, Keep keep) {
        while (count > 0) {
            if (left() == 0 && !fill()) return false;
            const std::size_t piece = std::min(count, left());
            if (!keep(position(), piece)) return false;
            select_.bufferPosition += static_cast<std::int32_t>(piece);
            count -= piece;
        }
        return true;
    }
    bool take_text(std::size_t count, std::string &text) {
        return take(count, [&](const unsigned char *bytes, std::size_t size) {
            text.append(reinterpret_cast<const char *>(bytes), size);
            return true;
        });
    }

    // The buffer grows with the bytes that are there and not with a length that a header claims.
    bool reserve(std::size_t needed) {
        const auto capacity = static_cast<std::size_t>(context_.recordCapacity);
        if (needed <= capacity) return true;
        const std::size_t wanted = std::max(needed, std::min(capacity * 2, LargestRecordBytes));
        return ensure_record_buffer(reading_.dp, context_, static_cast<std::int64_t>(wanted));
    }
    bool keep(const unsigned char *bytes, std::size_t size) {
        if (!reserve(size_ + size)) return false;
        std::memcpy(context_.recordBuffer + size_, bytes, size);
        size_ += size;
        return true;
    }

    // A record whose trailer differs was not finished when it was sent; one that does not agree with its checksum was
    // changed on its way, and that is told.
    bool is_finished() {
        if (!is_whole(context_.recordBuffer, size_)) return false;
        context_.hasRecord = agrees_with_crc(LogHeader(context_.recordBuffer), context_.recordBuffer);
        if (!context_.hasRecord) reading_.complain("Error! A record of '%s' is damaged", device_name(select_).c_str());
        return context_.hasRecord;
    }

    bool take_record() {
        const auto size = static_cast<std::size_t>(vgetint32(position() + RecordHeader::RecordSize));
        size_ = 0;
        return take(size, [&](const unsigned char *bytes, std::size_t piece) { return keep(bytes, piece); });
    }

    bool take_envelope(const EnvelopeHeader &header) {
        select_.bufferPosition += static_cast<std::int32_t>(Envelope::Key);
        std::string key, body;
        if (!take_text(header.key_bytes, key) || !take_text(header.body_bytes, body)) return false;
        const auto record = opened(reading_.dp, header, key, body);
        if (!record) {
            const std::string reason = velda_crypt_error(reading_.dp);
            reading_.complain("Error! A record of the stream cannot be deciphered: %s",
                              reason.empty() ? "what it holds is no record" : reason.c_str());
            errno = Damaged;
            return false;
        }
        size_ = 0;
        return keep(reinterpret_cast<const unsigned char *>(record->data()), record->size());
    }

    Reading &reading_;
    LogSelect &select_;
    LoggerContext &context_;
    std::size_t size_ = 0;  // of the record in the buffer
};

// --- from one device to the next ---

bool is_reply(const char *reply, char letter) { return (reply[0] | 0x20) == (letter | 0x20) && reply[1] == 0; }

bool cannot_prompt(const Reading &reading) {
    reading.complain("Unable to prompt terminal for new input device");
    errno = Invalid;
    return false;
}

// Fills the first block of the device that the operator has made ready. False with errno when he has not.
bool open_by_operator(Reading &reading) {
    LogSelect &select = reading.select;
    for (;;) {
        char reply[VELDA_LOGGER_REPLY_BYTES];
        if (VELDALoggerPromptReply(
                reading.dp, reply, reading.callback,
                "Waiting to open input device '%s'\nEnter C to continue, R to rename or Q to quit : ",
                device_name(select).c_str()) != 0)
            return cannot_prompt(reading);
        if (is_reply(reply, 'Q')) {
            reading.complain("QUIT requested by operator");
            errno = Absent;
            return false;
        }
        if (is_reply(reply, 'R')) {
            if (VELDALoggerPromptReply(reading.dp, reply, reading.callback, "Enter new name of file : ") != 0)
                return cannot_prompt(reading);
            if (reply[0] == 0) continue;
            select.devices[static_cast<std::size_t>(select.deviceIndex)] = reply;
        } else if (!is_reply(reply, 'C')) {
            continue;
        }
        const int error = LoggerFillBlock(reading.dp, &select, reading.callback);
        if (error == 0) return true;
        VELDAfprintf(reading.dp, stderr, "Error number %d reading first block from device %s\n", error,
                     device_name(select).c_str());
    }
}

// Waits for the next sender on the same port. False with errno.
bool accept_next_sender(Reading &reading) {
    LogSelect &select = reading.select;
    velda_socket_close(reading.dp, select.fd);
    reading.tell(WaitBegins);
    velda_socket_listen(reading.dp, select.listener.descriptor, 1);
    reading.wait_for(select.listener.descriptor);
    while ((select.fd = velda_socket_accept(reading.dp, select.listener.descriptor)) < 0 && errno == EINTR)
        reading.interrupted();
    const int error = errno;
    reading.tell(WaitEnds);
    errno = error;
    return select.fd >= 0;
}

// Ends reading with the error that means that no record is left.
const unsigned char *no_more() {
    errno = Absent;
    return nullptr;
}

// What follows the end of a stream on a socket: the record itself, once the next sender has sent a block.
const unsigned char *next_connection(Reading &reading, const unsigned char *end_record) {
    if (!(reading.select.flags & SelectWait)) return no_more();
    if (!accept_next_sender(reading)) return nullptr;
    const int error = LoggerFillBlock(reading.dp, &reading.select, reading.callback);
    errno = error;
    return error == 0 ? end_record : nullptr;
}

// Goes on to the next device. False with errno. The operator is asked whatever "prompt" says: only an output heeds it.
bool next_device(Reading &reading) {
    LogSelect &select = reading.select;
    close_device(select);
    if (++select.deviceIndex >= static_cast<std::int32_t>(select.devices.size())) {
        if (!(select.flags & SelectWait)) {
            VediLoggerError(reading.dp, 0, "Must use terminate=wait");
            errno = Absent;
            return false;
        }
        select.deviceIndex = 0;
    }
    return open_by_operator(reading);
}

}  // namespace

int LoggerFillBlock(DP *dp, LogSelect *select, VELDALoggerCallback callback) {
    Reading reading{dp, *select, callback};
    if (!is_block_size(select->blockSize)) {
        reading.complain("Error! A block of %d bytes cannot be read, %d to %d are possible", select->blockSize,
                         SmallestBlockBytes, LargestBlockBytes);
        return errno = Invalid;
    }
    await_input(reading);
    reading.tell(BlockReadBegins);
    const int error = fill_block(reading);
    reading.tell(BlockReadEnds);
    return errno = error;
}

const unsigned char *LoggerReadDevice(DP *dp, LogSelect *select, VELDALoggerCallback callback) {
    Reading reading{dp, *select, callback};
    StreamReader records(reading, logger_context(dp));
    for (;;) {
        const unsigned char *const record = records.next();
        if (!record || record[RecordHeader::Type] != static_cast<unsigned char>(RecordType::Eof)) return record;
        if (select->deviceType == Tty) return no_more();
        if (is_socket(*select)) return next_connection(reading, record);
        if (!next_device(reading)) return nullptr;
    }
}

}  // namespace velda::journal
