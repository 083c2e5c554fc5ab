// The road of a record through a run: read, handed to the output, and on to the next.
#include <cerrno>

#include "journal/duplicator/dup_apply.h"
#include "journal/duplicator/dup_dry_run.h"
#include "journal/journal.h"

namespace velda::journal {

namespace {

// Why a run ended: the high half of the termination reason.
enum EndReason : std::uint32_t { ListAtEnd = 1, ConnectionLost = 2, StreamAtEnd = 3, InputAtEnd = 4 };

constexpr int ErrorConnectionReset = 10054;
constexpr int ErrorNoMore = 2;
constexpr int ErrorStreamEnd = 38;
constexpr std::uint32_t LowByte = 0xFF, LowHalf = 0xFFFF;
constexpr std::uint32_t ReasonShift = 16;

void note_end(DupContext &context, EndReason reason, std::uint32_t error) {
    context.terminationReason = static_cast<std::uint32_t>(reason) << ReasonShift | (error & LowHalf);
}

const unsigned char *take_input(DP *dp, const unsigned char *record) {
    count_input(dp, record_size(record));
    ++dup_context(dp).recordsFromSet;
    return record;
}

const unsigned char *read_listed_record(DP *dp, DupContext &context) {
    VAR key;
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH);  // as VELDALoggerReadnext does by itself
    while (VLibFREADNEXT_IBBBBB(dp, &key, nullptr, nullptr, VLibReturnDefaultSelect(dp), nullptr) == 1) {
        int32_t file = 0, set = 0;
        int64_t offset = 0, time = 0;
        VELDALoggerSplitKey(dp, &file, &set, &offset, &time, key.view().data(), static_cast<int>(key.view().size()));
        if (const unsigned char *const record =
                VELDALoggerReadRecord(dp, context.input, file, set, offset, time, DupCallback))
            return take_input(dp, record);
        DupReport(dp, context.input, nullptr, Severity::Error, "Error number %d reading log record id %s", errno,
                  key.str().c_str());
        if (context.exiting) break;
    }
    note_end(context, ListAtEnd, ErrorNoMore);
    errno = ErrorNoMore;
    return nullptr;
}

void note_position(DupContext &context, const unsigned char *record) {
    context.lastSet = record[RecordHeader::Set];
    context.lastFile = record[RecordHeader::File];
    context.lastOffset = vgetlong64(record + RecordHeader::Offset);
    context.lastTime = record_time(record);
    if (context.firstTime == 0) context.firstTime = context.lastTime;
    publish_position(context);
}

// Whether the failed read ends the input; errno is then what the run ends with.
bool is_end_of_input(DP *dp, DupContext &context, std::uint32_t error) {
    context.terminationReason = error & LowHalf;
    // Deliberate order: the error is cut to a byte before it is looked at, so the numbers above 255 never match. A lost
    // connection is error 70 here and a stopped read is error 221: both are reported and reading goes on.
    const int reduced = static_cast<int>(error & LowByte);
    errno = reduced;
    if (reduced == ErrorConnectionReset) {
        DupReport(dp, context.input, nullptr, Severity::Error,
                  "An existing connection was forclibly closed by the remote host");
        note_end(context, ConnectionLost, error);
        errno = reduced;
        return true;
    }
    if (reduced == ErrorStreamEnd) {
        note_end(context, StreamAtEnd, error);
        errno = ErrorNoMore;
        return true;
    }
    if (reduced == ErrorNoMore || reduced == ReadingStopped) {
        note_end(context, InputAtEnd, error);
        errno = ErrorNoMore;
        return true;
    }
    DupReport(dp, context.input, nullptr, Severity::Error, "Error number %d reading next key from set %s", reduced,
              context.input->specText.c_str());
    return context.exiting;
}

// What comes from a log set is in this system's journal already: journalled again, it would feed a run that waits at the
// end of the current set. What comes from elsewhere is journalled as any update is, so that this system can be a sender.
class UpdatesFromJournal {
  public:
    UpdatesFromJournal(DP *dp, const LogSelect &input) : dp_(dp) {
        velda_logger_set_replay(dp_, input.deviceType == LogSetDevice);
    }
    ~UpdatesFromJournal() { velda_logger_set_replay(dp_, 0); }
    UpdatesFromJournal(const UpdatesFromJournal &) = delete;
    UpdatesFromJournal &operator=(const UpdatesFromJournal &) = delete;

  private:
    DP *dp_;
};

bool is_stream(const LogSelect &output) { return output.deviceType & StreamDevices; }

void count_unless_end(DP *dp, const unsigned char *record) {
    if (record_type(record) != RecordType::Eof) count_output(dp, record_size(record));
}

void write_to_stream(DP *dp, const unsigned char *record) {
    count_unless_end(dp, record);
    DupWriteDevice(dp, record);
}

void write_to_journal(DP *dp, const DupContext &context, const unsigned char *record) {
    count_unless_end(dp, record);
    if (const int error = WriteDeviceLogset(dp, record))
        DupReport(dp, context.output, record, Severity::Error, "Error number %d writing to the current log set: %s",
                  error, velda_logger_error(dp));
}

// The bracket stands around the record or, where updates are kept for a batch, around the batch.
void write_to_database(DP *dp, const DupContext &context, const unsigned char *record) {
    if (context.exclusive) return DupApply(dp, record);
    const ApplyBracket bracket(dp);
    DupApply(dp, record);
}

}  // namespace

const unsigned char *DupReadRecord(DP *dp) {
    DupContext &context = dup_context(dp);
    show_status(dp, "READING");
    if (context.useSelectList) return read_listed_record(dp, context);
    for (;;) {
        errno = 0;
        if (const unsigned char *const record = VELDALoggerReadnext(dp, context.input, DupCallback)) {
            note_position(context, record);
            return take_input(dp, record);
        }
        const auto error = static_cast<std::uint32_t>(errno);
        apply_pending(dp);
        if (is_end_of_input(dp, context, error)) return nullptr;
    }
}

void DupDispatch(DP *dp, const unsigned char *record) {
    DupContext &context = dup_context(dp);
    if (context.future) show_progress(dp, record);
    if (context.dryRun)
        context.dryRun->count(*context.output, record);
    else if (is_stream(*context.output))
        write_to_stream(dp, record);
    else if (context.output->deviceType == LogSetDevice)
        write_to_journal(dp, context, record);
    else if (context.output->deviceType == Database)
        write_to_database(dp, context, record);
    if (context.exiting) return;
    if (record_type(record) != RecordType::Eof)
        context.slot->inputBlocks = static_cast<std::uint64_t>(context.input->blockCount);
    if (!context.future) show_progress(dp, record);
}

int run_duplicator(DP *dp) {
    DupContext &context = dup_context(dp);
    const UpdatesFromJournal updates(dp, *context.input);
    while (const unsigned char *const record = DupReadRecord(dp)) {
        const bool is_checkpoint = record_type(record) == RecordType::Checkpoint;
        if (is_checkpoint && record_time(record) == context.input->endTime) {
            errno = ErrorNoMore;
            break;
        }
        if (!(context.input->flags & SelectSkipToCheckpoint))
            DupDispatch(dp, record);
        else if (is_checkpoint)
            context.input->flags &= ~static_cast<std::uint32_t>(SelectSkipToCheckpoint);
        if (context.exiting) break;
        DupCallback(dp, BetweenRecords);
    }
    const int error = errno;
    apply_pending(dp);
    return error == ErrorNoMore ? ExitDone : error;
}

}  // namespace velda::journal
