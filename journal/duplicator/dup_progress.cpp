// What a run shows while it works: a mark for so many records, or a line for each.
#include "journal/duplicator/dup_record.h"
#include "journal/duplicator/duplicator.h"

namespace velda::journal {

namespace {

constexpr std::uint64_t MarksOfLine = 50;

// Attributes of a converted record.
enum { TypeName = 5, Stamp = 6, PortNumber = 10, FileName = 21, RecordKey = 22, ApplicationName = 23 };

std::string renamed_for_display(const LogSelect &output, const VAR &converted) {
    return renamed_path(output, converted(FileName, 1).view());
}

void show_line(DP *dp, const DupContext &context, const unsigned char *record) {
    char key[VELDA_LOGGER_KEY_BYTES];
    VELDALoggerMakeKey(dp, record, key);
    VAR converted;
    if (convert_record(dp, record, "", converted) != 0) return;
    const VAR &shown = converted;
    VELDAfprintf(dp, stderr, "%-20s  %-6s  %-30s  %-15s", key, shown(TypeName).str().c_str(),
                 renamed_for_display(*context.output, shown).c_str(), shown(RecordKey).str().c_str());
    if (context.verboseLevel >= 2) {
        int day = 0, seconds = 0;
        VELDAConvertUnixTimeToVELDA(dp, shown(Stamp).to_integer(), &day, &seconds);
        VELDAfprintf(dp, stderr, "%-15s  %-6s  %s  %s", shown(ApplicationName).str().c_str(),
                     shown(PortNumber).str().c_str(), oconv(seconds, "MTS").str().c_str(),
                     oconv(day, "D4").str().c_str());
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
