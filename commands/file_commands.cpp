// CREATE-FILE, DELETE-FILE, CLEAR-FILE, FILE-STATUS, CHECK-FILE.
#include "commands/actions.h"
#include "commands/operands.h"
#include "runtime/file/file.h"

namespace velda::commands {

namespace {

// The words as the runtime takes them: one an attribute.
VAR operands_of(const Words &words) { return VAR(join_words(words)); }

// One line of FILE-STATUS: where it stands in the status and how it is called for people and in JSON.
struct StatusRow {
    int attribute;
    std::string_view label;
    std::string_view json_name;
    bool is_number;
};

constexpr StatusRow StatusRows[] = {
    {VELDA_STATUS_PATH, "Path", "path", false},
    {VELDA_STATUS_TYPE, "Type", "type", false},
    {VELDA_STATUS_RECORDS, "Records", "records", true},
    {VELDA_STATUS_SIZE, "Bytes on disk", "size_bytes", true},
    {VELDA_STATUS_DURABILITY, "Durability", "durability", false},
    {VELDA_STATUS_LOGGED, "Journalled", "journalled", true},
    {VELDA_STATUS_PERMISSIONS, "Permissions", "permissions", false},
    {VELDA_STATUS_OPTIONS, "Options", "options", false},
    {VELDA_STATUS_FLAGS, "Flags", "flags", false},
    {VELDA_STATUS_INODE, "Inode", "inode", true},
    {VELDA_STATUS_DEVICE, "Device", "device", true},
};

std::string status_for_people(const VAR &status) {
    std::string text;
    for (const StatusRow &row : StatusRows) {
        std::string label(row.label);
        label.resize(16, ' ');
        text += label + change(VAR(status(row.attribute)), VAR(VM), VAR(" ")).str() + "\n";
    }
    return text;
}

std::string status_as_json(const VAR &status) {
    JsonObject object;
    for (const StatusRow &row : StatusRows) {
        const std::string value = change(VAR(status(row.attribute)), VAR(VM), VAR(" ")).str();
        row.is_number ? object.number(row.json_name, value) : object.text(row.json_name, value);
    }
    return object.str() + "\n";
}

}  // namespace

void create_file(DP *dp, const Words &words) {
    VAR operands = operands_of(words), message;
    if (!velda_create_file(dp, &operands, &message)) stop(message);
}

void delete_file(DP *dp, const Words &words) {
    VAR operands = operands_of(words), message;
    if (!velda_delete_file(dp, &operands, &message)) stop(message);
}

void clear_file(DP *dp, const Words &words) {
    VAR file;
    open_operand(dp, "CLEAR-FILE", words, file);
    VLibFNEWCLEARFILE_IIBB(dp, 0, &file, nullptr);
}

void file_status(DP *dp, const Words &words) {
    Words operands = words;
    const bool as_json = take_option(operands, "--json");
    VAR file, status;
    open_operand(dp, "FILE-STATUS", operands, file);
    if (!VLibFSTATUS_IBBB(dp, &status, &file, nullptr)) fail("Cannot read the status of '" + operands.back() + "'");
    crt(as_json ? status_as_json(status) : status_for_people(status));
}

void check_file(DP *dp, const Words &words) {
    const VAR name = file_name_operand("CHECK-FILE", words);
    VAR records, findings, message;
    if (!velda_check_file(dp, &name, &records, &findings, &message)) stop(message);
    for (int n = 1; n <= dcount(findings, AM); ++n) crt_line(findings(n));
    crt_line(cat(records, " records could be read, ", dcount(findings, AM), " faults"));
    if (!findings.empty()) exit_command(1);
}

}  // namespace velda::commands
