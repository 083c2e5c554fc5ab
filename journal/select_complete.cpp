// What is settled behind the last token of a specification: the times, the device, the summary, the connection.
#include <cerrno>

#include "journal/duplicator/duplicator.h"
#include "journal/select_parser.h"

namespace velda::journal {

namespace {

std::int64_t stamp_of(DP *dp, const TimeOperand &operand) {
    return operand.stamp != 0 ? operand.stamp : LoggerMakeTime(dp, operand.time, operand.date);
}

}  // namespace

// Deliberate: only the last token is looked at. A checkpoint that an earlier token asked for gives no time, and a
// checkpoint at the end leaves dates and times of earlier tokens out.
void SpecParser::complete_times() {
    select_.startTime = start_.stamp;
    select_.endTime = end_.stamp;
    if (!same_word(context_.operand, "CHECKPOINT")) {
        context_.command.clear();
        select_.startTime = stamp_of(dp_, start_);
        select_.endTime = stamp_of(dp_, end_);
    } else if (last_code_ == TokenCode::Start) {
        select_.startTime = context_.config->lastCheckpoint;
        select_.flags |= SelectSkipToCheckpoint;
    } else if (last_code_ == TokenCode::End) {
        select_.endTime = context_.config->lastCheckpoint;
    }
}

bool SpecParser::complete_device() {
    if (select_.deviceType == 0) {
        LoggerSpecError(dp_, "No type of device was specified");
        return false;
    }
    if ((select_.deviceType & StreamDevices) != 0 && !complete_stream()) return false;
    if (select_.deviceType == LogSetDevice && !complete_log_set()) return false;
    if (select_.deviceType == Database) select_.startTime = select_.endTime = 0;
    if (milestone_given_ && select_.deviceType != Socket) {
        LoggerSpecError(dp_, "Milestone parameter is only valid when set=socket");
        return false;
    }
    if (static_cast<std::int32_t>(context_.config->blockSize) <= 0)
        context_.config->blockSize = VELDA_LOGGER_BLOCK_BYTES;
    show_summary(dp_, select_, is_output_, milestone_given_);
    return select_.deviceType != Socket || is_trial_ || VELDASetupSocketIO(dp_, &select_, is_output_, 0) == 0;
}

bool SpecParser::complete_stream() {
    const char *fault = nullptr;
    if (select_.blockSize <= 0) select_.blockSize = static_cast<std::int32_t>(context_.config->blockSize);
    if (select_.blockSize <= 0) select_.blockSize = VELDA_LOGGER_BLOCK_BYTES;
    if (select_.deviceType == Serial && select_.devices.empty())
        fault = "No device names specified for serial device";
    else if (select_.deviceType == Socket && select_.hostName.empty())
        fault = "No host name specified for socket";
    else if (select_.deviceType == Socket && select_.port == 0)
        fault = "No TCP port specified for socket";
    else if (!is_block_size(select_.blockSize))
        fault = "The block size is an invalid value";
    if (fault) LoggerSpecError(dp_, "%s", fault);
    return !fault;
}

bool SpecParser::complete_log_set() {
    const char *const fault = choose_set(*context_.config, select_);
    if (fault) LoggerSpecError(dp_, "%s", fault);
    return !fault;
}

}  // namespace velda::journal
