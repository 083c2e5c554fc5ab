#include "runtime/journal/file_records.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <string>

#include "runtime/journal/journal.h"
#include "runtime/journal/under_way.h"
#include "runtime/memory/memory.h"
#include "runtime/process/context.h"
#include "runtime/store/journalling.h"
#include "runtime/store/path.h"
#include "runtime/store/vedi.h"

namespace velda::journal {

namespace {

constexpr std::string_view ZeroByte("\0", 1);

void add_owner(RecordBatch &batch, const struct stat &status) {
    batch.add_number(status.st_uid);
    batch.add_number(status.st_gid);
    batch.add_number(status.st_mode & 07777);
}

void add_length(RecordBatch &batch, std::string_view text) {
    batch.add_number(static_cast<std::uint32_t>(text.size()));
}

// A length and that many bytes.
void add_field(RecordBatch &batch, std::string_view text) {
    add_length(batch, text);
    batch.add_bytes(text);
}

std::string_view environment_text(const char *name) {
    const char *const text = std::getenv(name);
    return text ? text : "";
}

// The words of CREATE-FILE that give a file these settings.
std::vector<std::string> setting_words(const store::FileSettings &settings) {
    char permissions[16];
    std::snprintf(permissions, sizeof permissions, "PERMS=%04o", static_cast<unsigned>(settings.permissions));
    std::vector<std::string> words = {
        settings.durability == store::Durability::Lazy ? "DURABILITY=LAZY" : "DURABILITY=SYNC", permissions};
    words.insert(words.end(), settings.options.begin(), settings.options.end());
    return words;
}

Result<void> add_creation(RecordBatch &batch, std::string_view path, std::string_view type,
                          const store::FileSettings &settings) {
    if (auto begun = batch.begin(path, {}); !begun) return begun;
    const auto words = setting_words(settings);
    std::size_t arguments_size = 4;
    for (const auto &word : words) arguments_size += 4 + word.size();
    add_field(batch, type);
    add_field(batch, "");  // words for the driver: all of them are among the arguments
    batch.add_number(static_cast<std::uint32_t>(arguments_size));
    batch.add_number(static_cast<std::uint32_t>(words.size()));
    for (const auto &word : words) add_field(batch, word);
    for (const char *name : {"VEDI_PREFILEOP", "VEDI_POSTFILEOP", "VEDI_CREATEFILE"})
        add_field(batch, environment_text(name));
    for (int value = 0; value < 3; ++value) batch.add_number(0);
    batch.end(RecordType::CreateFile);
    return {};
}

Result<void> add_move(RecordBatch &batch, std::string_view from, std::string_view to) {
    if (auto begun = batch.begin({}, {}); !begun) return begun;
    add_length(batch, from);
    add_length(batch, to);
    for (const std::string_view path : {from, to}) {
        batch.add_bytes(path);
        batch.add_bytes(ZeroByte);
    }
    batch.end(RecordType::MoveFile);
    return {};
}

// A type whose payload is one text behind its length.
Result<void> add_text(RecordBatch &batch, RecordType type, std::string_view file, std::string_view text) {
    if (auto begun = batch.begin(file, {}); !begun) return begun;
    add_field(batch, text);
    batch.end(type);
    return {};
}

Result<void> add_flat_file(RecordBatch &batch, std::string_view path, const struct stat &status,
                           std::string_view content) {
    if (auto begun = batch.begin({}, {}); !begun) return begun;
    add_length(batch, path);
    add_owner(batch, status);
    add_length(batch, content);
    batch.add_bytes(path);
    batch.add_bytes(ZeroByte);
    batch.end(RecordType::FlatFile, content);
    return {};
}

Result<void> journal_flat_file(DP *dp, const std::string &path) {
    struct stat status;
    std::uint64_t size = 0;
    char *const content = VediBaseReadMalloc(dp, path.c_str(), &size);
    if (!content || stat(path.c_str(), &status) < 0) {
        const int failed = errno;
        VELDAfree(dp, content, "journal", __LINE__);
        return system_error(failed, "cannot read file", path);
    }
    Result<void> appended;
    if (size > store::MaxRecordBytes)
        appended = system_error(EFBIG, "cannot journal file", path);
    else
        appended = append_batch(dp, [&](RecordBatch &batch) {
            return add_flat_file(batch, path, status, {content, size});
        });
    VELDAfree(dp, content, "journal", __LINE__);
    return appended;
}

std::string full_path(const char *path) {
    const auto absolute = store::absolute_path(path ? path : "");
    return absolute ? *absolute : std::string(path ? path : "");
}

constexpr RecordType TextTypes[] = {RecordType::CreateIndex, RecordType::DeleteIndex, RecordType::RebuildIndex,
                                    RecordType::CreateTrigger, RecordType::DeleteTrigger};

}  // namespace

Result<void> wait_for_append_leave(DP *dp) {
    Configuration *const configuration = journal_of_updates(dp);
    if (!configuration || dp->state<JournalSession>().depth > 0) return {};
    return wait_while_held(dp, *configuration);
}

bool is_asked_again(const Result<void> &appended) {
    return !appended && appended.error().number == store::JournalSuspended;
}

Result<void> journal_directory(DP *dp, const char *path) {
    struct stat status;
    const std::string name = full_path(path);
    if (stat(name.c_str(), &status) < 0) return system_error(errno, "cannot tell the owner of directory", name);
    return append_batch(dp, [&](RecordBatch &batch) -> Result<void> {
        if (auto begun = batch.begin({}, {}); !begun) return begun;
        add_length(batch, name);
        add_owner(batch, status);
        batch.add_bytes(name);
        batch.end(RecordType::MakeDirectory);
        return {};
    });
}

}  // namespace velda::journal

namespace velda::store {

using namespace velda::journal;

Result<void> journal_create(std::string_view path, std::string_view type, const FileSettings &settings) {
    return append_batch_now(updating_session(),
                            [&](RecordBatch &batch) { return add_creation(batch, path, type, settings); });
}

Result<void> journal_destroy(std::string_view path) {
    return append_batch_now(updating_session(), [&](RecordBatch &batch) -> Result<void> {
        if (auto begun = batch.begin(path, {}); !begun) return begun;
        batch.end(RecordType::DeleteFile);
        return {};
    });
}

Result<void> journal_move(std::string_view from, std::string_view to) {
    return append_batch_now(updating_session(), [&](RecordBatch &batch) { return add_move(batch, from, to); });
}

Result<void> journal_settings(std::string_view path, std::string_view words) {
    return append_batch_now(updating_session(),
                            [&](RecordBatch &batch) { return add_text(batch, RecordType::Chmod, path, words); });
}

}  // namespace velda::store

using namespace velda::journal;

int VediLoggerFlatFile(DP *dp, const char *path) {
    return journal_of_updates(dp) ? number_of(dp, journal_flat_file(dp, full_path(path))) : 0;
}

int velda_logger_move_file(DP *dp, const char *from, const char *to) {
    const std::string source = full_path(from), target = full_path(to);
    return number_of(dp, append_batch(dp, [&](RecordBatch &batch) { return add_move(batch, source, target); }));
}

int velda_logger_remove_file(DP *dp, const char *path) {
    const std::string name = full_path(path);
    return number_of(
        dp, append_batch(dp, [&](RecordBatch &batch) { return add_text(batch, RecordType::RemoveFile, {}, name); }));
}

int velda_logger_text(DP *dp, int what, const char *file, const char *text) {
    if (what < 0 || what >= static_cast<int>(std::size(TextTypes))) return errno = EINVAL;
    const std::string name = full_path(file);
    return number_of(
        dp, append_batch(dp, [&](RecordBatch &batch) { return add_text(batch, TextTypes[what], name, text); }));
}
