// record.cpp - READ, MATREAD, WRITE, DELETE and RELEASE.
#include <cerrno>

#include "runtime/file/statement.h"
#include "runtime/lock/record_lock.h"
#include "runtime/process/interrupt.h"
#include "runtime/transaction/session_file.h"
#include "runtime/transaction/session_transaction.h"
#include "runtime/value/value.h"

namespace velda::file {
namespace {

// A record statement under way: the statement, its file and its key.
struct RecordStatement : Statement {
    store::ControlBlockContent *content;
    std::string_view key;

    store::OpenFile &file() const { return *content->file; }
    int fail_with(Action action, const Error &error) const {
        return fail(*this, action, content ? file().path() : std::string_view(), key, error);
    }
};

// What asking for a record's lock came to.
enum class Lock { Granted, Busy, Failed };

struct LockAnswer {
    Lock lock = Lock::Granted;
    int result = Done;      // of the statement, when it ends here
    bool was_held = false;  // by this session, before
};

int report_busy(const RecordStatement &statement, const LockOwner &holder) {
    statement.dp->last_error = EWOULDBLOCK;
    if (statement.setting) *statement.setting = holder.port;
    return LockedByOther;
}

// Takes the record's lock. A wait that an interrupt ends goes on when the interrupt's trap returns.
LockAnswer take_lock(const RecordStatement &statement, Wait wait) {
    if (wait == Wait::Yes) store::release_snapshots();
    for (;;) {
        LockOutcome outcome = lock_record(statement.dp, statement.file().identity(), statement.key, wait);
        switch (outcome.result) {
            case LockResult::Granted:
                return {Lock::Granted, Done, outcome.was_held};
            case LockResult::Failed:
                return {Lock::Failed, statement.fail_with(Action::Lock, outcome.error)};
            case LockResult::Busy:
                return {Lock::Busy, report_busy(statement, outcome.holder)};
            case LockResult::Interrupted:
                poll_interrupt(statement.dp);
        }
    }
}

constexpr bool has_all(int flags, int wanted) { return (flags & wanted) == wanted; }

// What a read is asked to do about the record's lock, by its flags.
LockAnswer lock_for_read(const RecordStatement &statement) {
    if (has_all(statement.flags, VELDA_READ_LOCK_NOWAIT)) return take_lock(statement, Wait::No);
    if (statement.flags & VELDA_READ_LOCK) return take_lock(statement, Wait::Yes);
    return {};
}

// How a read without failure ends. A plain read may have to tell of another's lock; `error` says why nothing was found.
int end_read(const RecordStatement &statement, int result, int error) {
    const bool reports_lock = (statement.flags & VELDA_READ_LOCK_NOWAIT) == VELDA_READ_REPORT_LOCK;
    const auto holder =
        reports_lock ? other_holder(statement.dp, statement.file().identity(), statement.key) : std::nullopt;
    if (holder) return report_busy(statement, *holder);
    return result == Done ? Done : take_else_path(statement, error);
}

// True for an error that says that there is no record of this key, rather than that reading one failed.
bool means_no_record(const Error &error) {
    return error.number == ENOENT || error.number == ENOTDIR || error.number == EISDIR;
}

// Reads into `target`, which must not be the cell of the key or of the file.
int read_into(const RecordStatement &statement, VAR &target) {
    const LockAnswer answer = lock_for_read(statement);
    if (answer.lock != Lock::Granted) return answer.result;
    CellBuffer buffer(statement.dp, target);
    const auto found =
        transaction::read_record(statement.dp, *statement.content, statement.key, buffer, statement.content->read_mode);
    if (found && *found) return end_read(statement, Done, 0);
    target = "";
    if (found) return end_read(statement, ElsePath, ENOENT);
    if (means_no_record(found.error())) return end_read(statement, ElsePath, found.error().number);
    return statement.fail_with(Action::Read, found.error());
}

// READ, but for the attribute.
int read_record(DP *dp, int flags, const VAR *file, VAR &target, const VAR *key, VAR *setting) {
    if (!file) file = VLibReturnDefaultFile(dp);
    const RecordStatement statement{{dp, flags, setting}, content_of_cell(dp, file), text_of(key)};
    if (!statement.content) return statement.fail_with(Action::Read, not_open_error());
    if (const auto possible = check_key(statement.key); !possible) {
        target = "";
        return take_else_path(statement, possible.error().number);
    }
    if (&target != key && &target != file) return read_into(statement, target);
    VAR record;
    const int result = read_into(statement, record);
    if (record.form != 0) target = std::move(record);
    return result;
}

// READ of one attribute. A read that took nothing leaves the target as it was.
int read_attribute(DP *dp, int flags, const VAR *file, VAR &target, const VAR *key, int attribute, VAR *setting) {
    VAR record;
    const int result = read_record(dp, flags, file, record, key, setting);
    if (record.form != 0) VLibEEXTRACT_BBBIII(dp, &target, &record, attribute, 0, 0);
    return result;
}

// Attribute n of the record into cell n of the matrix; what is left over goes into the last cell.
void spread_over_matrix(VAR &matrix, std::string_view record) {
    const int cells = velda_matrix_size(&matrix);
    bool more = !record.empty();
    for (int i = 1; i <= cells; ++i) {
        const std::size_t end = i < cells ? record.find(AM) : std::string_view::npos;
        *VLibBARRAY_BB(nullptr, &matrix, i) = more ? record.substr(0, end) : std::string_view();
        more = more && end != std::string_view::npos;
        if (more) record.remove_prefix(end + 1);
    }
}

// A write or delete gives the record's lock back, unless it is told to keep it. A failure keeps it: the caller may try
// again.
int end_update(const RecordStatement &statement) {
    if (!(statement.flags & VELDA_WRITE_KEEP_LOCK))
        unlock_record(statement.dp, statement.file().identity(), statement.key);
    return Done;
}

// In a transaction an update takes the record's lock, which is kept to its end.
LockAnswer lock_for_update(const RecordStatement &statement) {
    if (!transaction::open_transaction(statement.dp)) return {};
    return take_lock(statement, statement.flags & VELDA_WRITE_NOWAIT ? Wait::No : Wait::Yes);
}

int write_record(const RecordStatement &statement, std::string_view record) {
    if (const auto possible = check_record(record); !possible)
        return statement.fail_with(Action::Write, possible.error());
    if (const LockAnswer answer = lock_for_update(statement); answer.lock != Lock::Granted) return answer.result;
    const auto written = transaction::write_record(statement.dp, *statement.content, statement.key, record,
                                                   statement.content->write_mode);
    if (!written) return statement.fail_with(Action::Write, written.error());
    return end_update(statement);
}

// The record with one attribute replaced, as it is now.
Result<VAR> replaced_attribute(const RecordStatement &statement, const VAR &value, int attribute) {
    VAR record;
    CellBuffer buffer(statement.dp, record);
    const auto found =
        transaction::read_record(statement.dp, *statement.content, statement.key, buffer, statement.content->read_mode);
    if (!found && !means_no_record(found.error())) return found.error();
    if (!found || !*found) record = "";
    record(attribute) = value;
    return record;
}

// WRITE of one attribute: under the record's lock, so that of two sessions that write different attributes neither
// loses.
int write_attribute(const RecordStatement &statement, const VAR &value, int attribute) {
    const LockAnswer answer = take_lock(statement, Wait::Yes);
    if (answer.lock != Lock::Granted) return answer.result;
    const auto release = [&] {
        if (!answer.was_held) unlock_record(statement.dp, statement.file().identity(), statement.key);
    };
    auto record = replaced_attribute(statement, value, attribute);
    if (!record) {
        release();
        return statement.fail_with(Action::Write, record.error());
    }
    const auto written = transaction::write_record(statement.dp, *statement.content, statement.key, record->view(),
                                                   statement.content->write_mode);
    if (written) return end_update(statement);
    release();
    return statement.fail_with(Action::Write, written.error());
}

}  // namespace
}  // namespace velda::file

using namespace velda::file;

int VLibFNEWREAD_IIBBBIB(DP *dp, int flags, const VAR *file, VAR *target, const VAR *key, int attribute, VAR *setting) {
    if (flags & VELDA_ONE_ATTRIBUTE) return read_attribute(dp, flags, file, *target, key, attribute, setting);
    return read_record(dp, flags, file, *target, key, setting);
}

int VLibFNEWMATREAD_IIBBBBB(DP *dp, int flags, VAR *count, VAR *matrix, const VAR *key, const VAR *file, VAR *setting) {
    VAR record;
    const int result = read_record(dp, flags, file, record, key, setting);
    if (record.form == 0) return result;
    spread_over_matrix(*matrix, record.view());
    if (count) *count = VLibEDCOUNT_IBB(dp, &record, velda::Argument(velda::AM));
    return result;
}

int VLibFNEWWRITE_IIBBBIB(DP *dp, int flags, const VAR *file, const VAR *record, const VAR *key, int attribute,
                          VAR *setting) {
    const RecordStatement statement{{dp, flags, setting}, content_of_cell(dp, file), text_of(key)};
    if (!statement.content) return statement.fail_with(Action::Write, not_open_error());
    if (const auto possible = check_key(statement.key); !possible)
        return statement.fail_with(Action::Write, possible.error());
    if (flags & VELDA_ONE_ATTRIBUTE) return write_attribute(statement, *record, attribute);
    return write_record(statement, text_of(record));
}

int VLibFNEWDELETE_IIBBB(DP *dp, int flags, const VAR *file, const VAR *key, VAR *setting) {
    const RecordStatement statement{{dp, flags, setting}, content_of_cell(dp, file), text_of(key)};
    if (!statement.content) return statement.fail_with(Action::Delete, not_open_error());
    if (const auto possible = check_key(statement.key); !possible)
        return statement.fail_with(Action::Delete, possible.error());
    if (const LockAnswer answer = lock_for_update(statement); answer.lock != Lock::Granted) return answer.result;
    const auto removed = velda::transaction::remove_record(statement.dp, *statement.content, statement.key);
    if (!removed) return statement.fail_with(Action::Delete, removed.error());
    return end_update(statement);
}

int VLibFRELEASE_IBB(DP *dp, const VAR *file, const VAR *key) {
    const auto *const content = content_of_cell(dp, file);
    if (!content) return ElsePath;
    const auto identity = content->file->identity();
    if (key) return velda::unlock_record(dp, identity, key->view()) ? Done : ElsePath;
    velda::unlock_file(dp, identity);
    return Done;
}
