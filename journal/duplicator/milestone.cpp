// Milestones: how far the receiver of a transfer has got, told to the sender, who keeps it in a file for a restart.
#include <cerrno>
#include <cinttypes>

#include "journal/duplicator/duplicator.h"

namespace velda::journal {

namespace {

constexpr int NewFileMode = 438;  // octal 666

std::string milestone_line(DP *dp, const char *label, std::int64_t time) {
    char line[128];
    std::snprintf(line, sizeof line, "%s%s (UTC %" PRId64 ")\n", label, readable_time(dp, time).c_str(), time);
    return line;
}

std::string milestone_text(DP *dp, const DupContext &context, std::int64_t received) {
    return context.programName + " Milestone Status\n" +
           milestone_line(dp, "Sender Start       : ", static_cast<std::int64_t>(context.slot->startTime)) +
           milestone_line(dp, "Sender Milestone   : ", context.lastTime) +
           milestone_line(dp, "Receiver Milestone : ", received);
}

// One write over the old text, in place, and what is left of a longer one is cut off behind it: at every instant the
// file holds a text that can be read.
int write_milestone_file(DP *dp, const std::string &name, const std::string &text) {
    VRunFile *const file = VRunFileIOOpen(dp, name.c_str(), VELDA_OPEN_READ_WRITE | VELDA_OPEN_CREATE, NewFileMode);
    if (!file) return errno;
    int error = VRunFileIOWrite(dp, file, 0, text.data(), text.size(), nullptr);
    if (error == 0 && VediWin32ftruncate(VRunFileIOGetFd(dp, file), static_cast<std::int64_t>(text.size())) != 0)
        error = errno;
    VRunFileIOClose(dp, file);
    return error;
}

void keep_milestone(DP *dp, DupContext &context, std::int64_t received) {
    const std::string &name = context.output->milestoneFile;
    if (const int error = write_milestone_file(dp, name, milestone_text(dp, context, received)))
        DupReport(dp, context.output, nullptr, Severity::Warning, "Error number %d writing to the milestone file '%s'",
                  error, name.c_str());
}

bool is_empty_file(DP *dp, const std::string &name) {
    VRunFile *const file = VRunFileIOOpen(dp, name.c_str(), VELDA_OPEN_READ, 0);
    if (!file) return true;
    char byte;
    std::size_t got = 0;
    VRunFileIORead(dp, file, 0, &byte, 1, &got);
    VRunFileIOClose(dp, file);
    return got == 0;
}

// A file without a milestone would make a restart begin at the time when the file was made. So it gets one as soon as
// something was sent: the receiver has nothing of this run yet, and a restart begins where this run began.
void keep_first_milestone(DP *dp, DupContext &context) {
    if (context.transfer.hasMilestoneFile || context.firstTime == 0) return;
    context.transfer.hasMilestoneFile = true;
    if (is_empty_file(dp, context.output->milestoneFile)) keep_milestone(dp, context, context.firstTime);
}

bool takes_milestones(const DupContext &context) {
    const LogSelect *const output = context.output;
    return output && output->deviceType == Socket && !output->milestoneFile.empty() && output->fd >= 0;
}

}  // namespace

void DupSendMilestone(DP *dp, DupContext &context, std::int64_t time) {
    const LogSelect *const input = context.input;
    if (!input || input->deviceType != Socket || !input->sendMilestone) return;
    const std::int64_t now = milestone_clock();
    if (now - context.lastMilestoneSent < milestone_seconds) return;
    unsigned char bytes[sizeof(std::int64_t)];
    vputlong64(bytes, time);
    if (velda_socket_ready(dp, input->fd, VELDA_SOCKET_OUTPUT))
        velda_socket_send(dp, input->fd, bytes, sizeof bytes);  // a receiver that is cut off learns that by reading
    context.lastMilestoneSent = now;
    publish_milestone(context, time);
}

bool take_milestones(DP *dp, DupContext &context) {
    const LogSelect &output = *context.output;
    auto &[bytes, filled] = context.transfer.milestone;
    std::int64_t last = 0;
    bool is_open = true;
    while (is_open && velda_socket_ready(dp, output.fd, VELDA_SOCKET_INPUT)) {
        const std::ptrdiff_t got = velda_socket_recv(dp, output.fd, bytes.data() + filled, bytes.size() - filled);
        is_open = got >= 1;
        if (!is_open) break;
        filled += static_cast<std::size_t>(got);
        if (filled < bytes.size()) continue;
        last = vgetlong64(bytes.data());
        filled = 0;
    }
    if (last != 0 && last >= context.firstTime && last <= context.lastTime && takes_milestones(context)) {
        context.ackTime = last;
        publish_milestone(context, last);
        keep_milestone(dp, context, last);
    }
    return is_open;
}

void DupReadMilestone(DP *dp, DupContext &context) {
    if (!takes_milestones(context)) return;
    keep_first_milestone(dp, context);
    take_milestones(dp, context);
}

}  // namespace velda::journal
