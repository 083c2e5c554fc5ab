// dup_weak.h - calls that a build may lack: a program that never runs a duplicator links without them.
#pragma once

#include "journal/duplicator/duplicator.h"

#pragma weak VELDALoggerConvertRecord
#pragma weak VELDALoggerMakeKey
#pragma weak VELDALoggerReadRecord
#pragma weak VELDALoggerReadnext
#pragma weak VELDALoggerSelectEnd
#pragma weak VELDALoggerSplitKey

namespace velda::journal {

[[gnu::weak]] void DupCallback(DP *dp, int code, ...);
[[gnu::weak]] void DupFlushBlock(DP *dp, bool new_device);
[[gnu::weak]] void DupWriteDevice(DP *dp, const unsigned char *record);
[[gnu::weak]] void DupSendMilestone(DP *dp, DupContext &context, std::int64_t time);
[[gnu::weak]] void write_end_record(DP *dp);

}  // namespace velda::journal
