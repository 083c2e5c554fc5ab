// What a run shows while it works: a mark for so many records, or a line for each.
#include "journal/duplicator/dup_record.h"
#include "journal/duplicator/duplicator.h"

namespace velda::journal {

namespace {

constexpr std::uint64_t MarksOfLine = 50;
constexpr int SecondsOfDay = 86400;
constexpr int DayOf1970 = 732;

// Attributes of a converted record.
enum { TypeName = 5, Stamp = 6, PortNumber = 10, FileName = 21, RecordKey = 22, ApplicationName = 23 };

char *allocate(DP *dp, char *old, std::uint32_t size) {
    return static_cast<char *>(VELDArealloc(dp, old, size, "vlogdupC", __LINE__));
}

bool convert_record(DP *dp, const unsigned char *record, VAR &converted) {
    char *buffer = nullptr;
    std::uint32_t size = 0;
    const bool done = VELDALoggerConvertRecord(dp, record, "", &buffer, &size, allocate) == 0;
    if (done) converted = std::string_view(buffer, size);
    VELDAfree(dp, buffer, "vlogdupC", __LINE__);
    return done;
}

std::string renamed_for_display(const LogSelect &output, const VAR &converted) {
    return renamed_path(output, converted(FileName, 1).view());
}

// Local time and date of a stamp.
std::string shown_time(DP *dp, std::int64_t stamp) {
    int seconds = VLibGInternalLocalTimeFromUTCt(dp, stamp);
    auto day = static_cast<int>(stamp / SecondsOfDay) + DayOf1970;
    if (seconds < 0) --day, seconds += SecondsOfDay;
    if (seconds >= SecondsOfDay) ++day, seconds -= SecondsOfDay;
    return oconv(seconds, "MTS").str() + " " + oconv(day, "D4").str();
}

void show_line(DP *dp, const DupContext &context, const unsigned char *record) {
    char key[VELDA_LOGGER_KEY_BYTES];
    VELDALoggerMakeKey(dp, record, key);
    VAR converted;
    if (!convert_record(dp, record, converted)) return;
    const VAR &shown = converted;
    VELDAfprintf(dp, stderr, "%-20s  %-6s  %-30s  %-15s", key, shown(TypeName).str().c_str(),
                 renamed_for_display(*context.output, shown).c_str(), shown(RecordKey).str().c_str());
    if (context.verboseLevel >= 2) {
        const std::string time = shown_time(dp, shown(Stamp).to_integer());
        const std::size_t space = time.find(' ');
        VELDAfprintf(dp, stderr, "%-15s  %-6s  %s  %s", shown(ApplicationName).str().c_str(),
                     shown(PortNumber).str().c_str(), time.substr(0, space).c_str(), time.substr(space + 1).c_str());
    }
    VELDAfprintf(dp, stderr, "\n");
}

void show_mark(DP *dp, DupContext &context, std::uint64_t records) {
    VELDAfprintf(dp, stderr, "*");
    context.starsPending = 1;
    if (records % (MarksOfLine * context.progressEvery) != 0) return;
    VELDAfprintf(dp, stderr, "\n");
    context.starsPending = 0;
}

}  // namespace

void show_progress(DP *dp, const unsigned char *record) {
    DupContext &context = dup_context(dp);
    const std::uint64_t records = context.slot->inputRecords;
    if (context.progressEvery == 0 || records % context.progressEvery != 0) return;
    if (context.verboseLevel > 0)
        show_line(dp, context, record);
    else
        show_mark(dp, context, records);
    VELDAfflush(dp, stderr);
}

}  // namespace velda::journal
