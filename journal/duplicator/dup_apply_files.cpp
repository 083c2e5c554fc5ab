// Record types that act on whole files and directories.
#include "fileutil/fileutil.h"
#include "journal/duplicator/dup_apply.h"

namespace velda::journal {

namespace {

constexpr int DatabaseFile = 4;
constexpr int OptionCommand = 21;
constexpr int FlatFileError = -1;  // what the texts about flat files show, whatever the reason
constexpr int Journalled = 1;

struct CloseRawFile {
    DP *dp;
    void operator()(VRunFile *file) const { VRunFileIOClose(dp, file); }
};

// A path of the payload as it is called here; "" after a report.
std::string usable_path(const Replay &replay, std::string_view path) {
    std::string name = renamed_path(*replay.output(), path.substr(0, path.find('\0')));
    if (!name.empty() && !is_refused(name)) return name;
    report_refusal(replay.dp, name, replay.record.bytes);
    return {};
}

bool write_flat_file(DP *dp, VRunFile *file, std::string_view data) {
    std::size_t written = 0;
    return VRunFileIOWrite(dp, file, 0, data.data(), data.size(), &written) == 0 && written == data.size();
}

}  // namespace

Outcome apply_clear_file(Replay &replay) {
    if (!replay.file) {
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error, "Assertion failed: fd != NULL");
    } else if (const int error = VediClearFile(replay.dp, replay.file)) {
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "Error number %d performing CLEARFILE on file '%s'", error, replay.name().c_str());
    }
    return Outcome::Milestone;
}

Outcome apply_delete_file(Replay &replay) {
    const std::string name = replay.name();
    const std::string operand = (name.ends_with("]D") ? "DICT " : "DATA ") + name;
    close_cached(replay.dp, replay.context, name);
    char error_text[VEDI_ERROR_TEXT_BYTES] = "";
    if (const int error = VediFileOp(replay.dp, VEDI_FILE_DELETE, DatabaseFile, operand.c_str(), "", error_text))
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "DELETE-FILE of file '%s' failed, error number %d\n    Error code '%s;", name.c_str(), error,
                  error_text);
    return Outcome::Milestone;
}

Outcome apply_move_file(Replay &replay) {
    PayloadReader payload(replay.record.payload);
    const std::uint32_t from_length = payload.number();
    const std::uint32_t to_length = payload.number();
    const std::string_view from_path = payload.text(from_length);
    payload.text(1);
    const std::string_view to_path = payload.text(to_length);
    if (!payload.whole()) return report_damage(replay);
    const std::string from = usable_path(replay, from_path);
    if (from.empty()) return Outcome::Milestone;
    const std::string to = usable_path(replay, to_path);
    if (to.empty()) return Outcome::Milestone;
    close_cached(replay.dp, replay.context, from);
    close_cached(replay.dp, replay.context, to);
    if (const int error = VELDAMoveOrDeleteFile(replay.dp, from.c_str(), to.c_str(), Journalled))
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "MOVEFILE of file '%s' to '%s' failed, error number %d\n", from.c_str(), to.c_str(), error);
    return Outcome::Milestone;
}

Outcome apply_remove_file(Replay &replay) {
    PayloadReader payload(replay.record.payload);
    const std::string_view path = payload.counted_text();
    if (!payload.whole()) return report_damage(replay);
    const std::string name = usable_path(replay, path);
    if (name.empty()) return Outcome::Milestone;
    close_cached(replay.dp, replay.context, name);
    if (const int error = VELDAMoveOrDeleteFile(replay.dp, name.c_str(), "", Journalled))
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "REMOVEFILE of file '%s' failed, error number %d\n", name.c_str(), error);
    return Outcome::Milestone;
}

Outcome apply_mode(Replay &replay) {
    PayloadReader payload(replay.record.payload);
    const std::string_view block = payload.counted_text();
    if (!payload.whole()) return report_damage(replay);
    if (!replay.file) {
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "Error File Path empty for VCHMOD Record");
    } else if (const int error = VediIOCTL(replay.dp, replay.file, OptionCommand, block.data(),
                                           static_cast<std::uint32_t>(block.size()), nullptr, 0)) {
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "VCHMOD of file '%s' failed, error number %d\n", replay.name().c_str(), error);
    }
    return Outcome::Milestone;
}

Outcome apply_make_directory(Replay &replay) {
    PayloadReader payload(replay.record.payload);
    const std::uint32_t path_length = payload.number();
    const std::string uid = std::to_string(static_cast<int>(payload.number()));
    const std::string gid = std::to_string(static_cast<int>(payload.number()));
    const int mode = static_cast<int>(payload.number());
    const std::string_view path = payload.text(path_length);
    if (!payload.whole()) return report_damage(replay);
    const std::string name = usable_path(replay, path);
    if (name.empty()) return Outcome::Milestone;
    close_cached(replay.dp, replay.context, name);
    if (const int error = VELDAMakeDirectory(replay.dp, name.c_str(), uid.c_str(), gid.c_str(), mode, Journalled))
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "MKDIR of file '%s' failed, error number %d\n", name.c_str(), error);
    return Outcome::Milestone;
}

Outcome apply_flat_file(Replay &replay) {
    PayloadReader payload(replay.record.payload);
    const std::uint32_t path_length = payload.number();
    payload.number();  // the owner is not applied
    payload.number();
    const int mode = static_cast<int>(payload.number());
    const std::uint32_t data_length = payload.number();
    const std::string_view path = payload.text(path_length);
    payload.text(1);
    const std::string_view data = payload.text(data_length);
    if (!payload.whole()) return report_damage(replay);
    const std::string name = usable_path(replay, path);
    if (name.empty()) return Outcome::Milestone;
    close_cached(replay.dp, replay.context, name);
    constexpr int OpenMode = VELDA_OPEN_READ_WRITE | VELDA_OPEN_CREATE | VELDA_OPEN_TRUNCATE;
    const std::unique_ptr<VRunFile, CloseRawFile> file(VRunFileIOOpen(replay.dp, name.c_str(), OpenMode, mode),
                                                       CloseRawFile{replay.dp});
    if (!file)
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "FLATFILE: Cannot create  file '%s' failed, error number %d\n", name.c_str(), FlatFileError);
    else if (!write_flat_file(replay.dp, file.get(), data))
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "FLATFILE: Error writing to file '%s' failed, error number %d\n", name.c_str(), FlatFileError);
    else
        VediLoggerFlatFile(replay.dp, name.c_str());
    return Outcome::Milestone;
}

}  // namespace velda::journal
