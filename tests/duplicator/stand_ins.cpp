// Stand-ins for the parts of a run that these tests do not have.
#include "journal/duplicator/duplicator.h"

namespace velda::journal {

[[gnu::weak]] void DupCallback(DP *, int, ...) {}
[[gnu::weak]] void DupFlushBlock(DP *, bool) {}
[[gnu::weak]] void DupWriteDevice(DP *, const unsigned char *) {}
[[gnu::weak]] void DupSendMilestone(DP *, DupContext &, std::int64_t) {}
[[gnu::weak]] void write_end_record(DP *) {}

}  // namespace velda::journal

[[gnu::weak]] void VELDALoggerSelectEnd(DP *, LogSelect **select) { *select = nullptr; }
