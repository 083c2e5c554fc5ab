#include "runtime/lock/session_owner.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <mutex>

#include "runtime/base/global_directory.h"
#include "runtime/process/context.h"

namespace velda::lock {

namespace {

std::atomic<unsigned> forks{0};

// Tables stay mapped until the process is gone: a context may be destroyed later than any object of this file.
struct AttachedTables {
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<LockTable>> by_path;
};

void leave_tables();

AttachedTables &attached_tables() {
    static AttachedTables &tables = *new AttachedTables;
    static const int at_exit = atexit(leave_tables);
    (void)at_exit;
    return tables;
}

// The last user of a system takes its table along.
void leave_tables() {
    AttachedTables &tables = attached_tables();
    const std::lock_guard guard(tables.mutex);
    for (const auto &[path, table] : tables.by_path) {
        if (table) table->leave();
    }
}

}  // namespace

unsigned process_generation() {
    static const int registered = pthread_atfork(nullptr, nullptr, [] { ++forks; });
    (void)registered;
    return forks.load(std::memory_order_relaxed);
}

Result<LockTable *> system_lock_table() {
    const auto directory = global_subdirectory("lock");
    if (!directory) return directory.error();
    AttachedTables &tables = attached_tables();
    const std::lock_guard guard(tables.mutex);
    auto &table = tables.by_path[*directory];
    if (!table) {
        auto attached = LockTable::attach(*directory + "/table");
        if (!attached) return attached.error();
        table = std::move(*attached);
    }
    return table.get();
}

bool SessionOwner::is_ready() const {
    return table_ && process_generation_ == process_generation() && table_->is_registered(owner_);
}

Result<void> SessionOwner::make_ready() {
    if (is_ready()) return {};
    forget();
    const auto table = system_lock_table();
    if (!table) return table.error();
    auto owner = (*table)->register_owner(getpid(), dp_.serial);
    if (!owner) return owner.error();
    table_ = *table;
    owner_ = std::move(*owner);
    process_generation_ = process_generation();
    table_->finish_what_was_left();
    return {};
}

// What was held belongs to another process or is lost: nothing in the table is touched.
void SessionOwner::forget() {
    table_ = nullptr;
    owner_ = Owner();
    port_taken = false;
}

SessionOwner::~SessionOwner() {
    if (is_ready()) table_->retire(owner_);
}

}  // namespace velda::lock
