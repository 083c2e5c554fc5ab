// The table of running duplicators inside the configuration. A slot is proven by a record lock of its owner, which
// goes with the owner's process.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "journal/journal.h"
#include "journal/logger_context.h"

namespace velda::journal {

namespace {

constexpr uint32_t DatabaseDevice = 8;

// Modes of the record lock.
constexpr int TakeLock = 1, TestLock = 2, ReleaseLock = 4;

int slot_lock(DP *dp, VRunFile *file, uint32_t pid, int mode) {
    char key[32];
    const int length = std::snprintf(key, sizeof key, "vlogdup*%d", static_cast<int>(pid));
    return VRunFileIOLockRecord(dp, file, key, static_cast<size_t>(length), mode);
}

// The lock that guards the table, for a scope.
class TableLock {
  public:
    explicit TableLock(DP *dp) : dp_(dp) { VediLoggerMisc(dp_, VELDA_LOGGER_TABLE_LOCK, VELDA_LOGGER_TAKE); }
    ~TableLock() { VediLoggerMisc(dp_, VELDA_LOGGER_TABLE_LOCK, VELDA_LOGGER_LEAVE); }
    TableLock(const TableLock &) = delete;
    TableLock &operator=(const TableLock &) = delete;

  private:
    DP *dp_;
};

bool open_configuration(DP *dp, LoggerContext &context) {
    if (context.configHandle) return true;
    if (!map_logger(dp, context)) return false;
    const std::string path = logger_text(context.config->configPath, sizeof context.config->configPath);
    context.configHandle = VRunFileIOOpen(dp, path.c_str(), VELDA_OPEN_READ_WRITE, 0);
    return context.configHandle != nullptr;
}

DupStatusSlot *slot_of_process(VELDALoggerConfig &config, uint32_t pid) {
    auto *const found = std::find_if(std::begin(config.dupSlots), std::end(config.dupSlots),
                                     [pid](const DupStatusSlot &slot) { return slot.pid == pid; });
    return found == std::end(config.dupSlots) ? nullptr : found;
}

// Clears the slots whose owners are dead: their locks can be had. A session of the owner's own process has the lock
// already and would have it again, so the slots of one process are spared.
void purge(DP *dp, LoggerContext &context, uint32_t spared) {
    for (DupStatusSlot &slot : context.config->dupSlots) {
        const uint32_t pid = slot.pid;
        if (pid == 0 || pid == spared || slot_lock(dp, context.configHandle, pid, TestLock) != 0) continue;
        {
            const TableLock lock(dp);
            if (slot.pid == pid) slot = {};
        }
        slot_lock(dp, context.configHandle, pid, ReleaseLock);
    }
}

DupStatusSlot *take_free_slot(DP *dp, VELDALoggerConfig &config) {
    const TableLock lock(dp);
    DupStatusSlot *const slot = slot_of_process(config, 0);
    if (!slot) return nullptr;
    slot->port = static_cast<uint32_t>(VELDAGetPortNumber(dp));
    slot->startTime = static_cast<uint64_t>(present_time());
    slot->pid = static_cast<uint32_t>(VELDAgetpid(dp));
    return slot;
}

// The slot that this process has taken last, and its number: a forked child has none of its parent's. Any other slot
// with the process's number was left by a dead process which had the number before.
std::atomic<const DupStatusSlot *> taken{nullptr};
std::atomic<uint32_t> taken_by{0};

DupStatusSlot *own_slot(VELDALoggerConfig &config, uint32_t pid) {
    DupStatusSlot *const slot = slot_of_process(config, pid);
    return slot && taken == slot && taken_by == pid ? slot : nullptr;
}

enum class SlotShown { Integer, Long, Text };

struct SlotField {
    int attribute;
    SlotShown shown;
    size_t offset;
    size_t size;
};

#define SLOT_FIELD(attribute, shown, name) \
    { attribute, SlotShown::shown, offsetof(DupStatusSlot, name), sizeof(DupStatusSlot::name) }

constexpr SlotField SlotFields[] = {
    SLOT_FIELD(1, Integer, pid),           SLOT_FIELD(2, Long, startTime),     SLOT_FIELD(3, Integer, port),
    SLOT_FIELD(4, Text, statusText),       SLOT_FIELD(10, Text, inputSpec),    SLOT_FIELD(11, Integer, inputDevice),
    SLOT_FIELD(12, Long, inputRecords),    SLOT_FIELD(13, Long, inputBlocks),  SLOT_FIELD(14, Long, inputBytes),
    SLOT_FIELD(15, Integer, inputErrors),  SLOT_FIELD(20, Text, outputSpec),   SLOT_FIELD(21, Integer, outputDevice),
    SLOT_FIELD(22, Long, outputRecords),   SLOT_FIELD(23, Long, outputBlocks), SLOT_FIELD(24, Long, outputBytes),
    SLOT_FIELD(25, Integer, outputErrors),
};

#undef SLOT_FIELD

void store_slot_field(DP *dp, VAR *result, int value, const DupStatusSlot &slot, const SlotField &field) {
    const char *const bytes = reinterpret_cast<const char *>(&slot) + field.offset;
    if (field.shown == SlotShown::Text)
        return LoggerStoreField(dp, result, field.attribute, value, "%s", logger_text(bytes, field.size).c_str());
    int64_t number = 0;
    std::memcpy(&number, bytes, field.size);  // a number of 4 bytes fills the low half
    if (field.shown == SlotShown::Integer) number = static_cast<int32_t>(number);
    LoggerStoreField(dp, result, field.attribute, value, "%" PRId64, number);
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

DupStatusSlot *VELDALoggerStatusAllocate(DP *dp) {
    LoggerContext &context = logger_context(dp);
    if (!open_configuration(dp, context)) return nullptr;
    const auto pid = static_cast<uint32_t>(VELDAgetpid(dp));
    if (DupStatusSlot *const own = own_slot(*context.config, pid)) {
        slot_lock(dp, context.configHandle, pid, TestLock);  // had already, unless the session that took the slot ended
        return own;
    }
    constexpr uint32_t Nobody = 0;
    purge(dp, context, Nobody);
    // The lock comes before the slot: a purge by another process never finds a slot of the living without it.
    slot_lock(dp, context.configHandle, pid, TakeLock);
    DupStatusSlot *const slot = take_free_slot(dp, *context.config);
    if (!slot) {
        slot_lock(dp, context.configHandle, pid, ReleaseLock);
        VELDAfprintf(dp, stderr, "Error! No free slots, all %d entries taken\n", VELDA_LOGGER_DUP_SLOTS);
        errno = ENOENT;
        return nullptr;
    }
    taken = slot;
    taken_by = pid;
    return slot;
}

int VELDALoggerStatusDelete(DP *dp) {
    LoggerContext &context = logger_context(dp);
    if (!open_configuration(dp, context)) return 0;
    const auto pid = static_cast<uint32_t>(VELDAgetpid(dp));
    const TableLock lock(dp);
    while (DupStatusSlot *const slot = slot_of_process(*context.config, pid)) {
        *slot = {};
        // Deliberate: the key is made from the cleared slot, so it names process 0, and the owner's lock stays until
        // its process ends. The purge depends on nothing else.
        slot_lock(dp, context.configHandle, slot->pid, ReleaseLock);
    }
    return 0;
}

int VELDALoggerStatusRead(DP *dp, VAR *result) {
    LoggerContext &context = logger_context(dp);
    result->clear();
    if (!open_configuration(dp, context)) return 0;
    purge(dp, context, static_cast<uint32_t>(VELDAgetpid(dp)));
    int value = 0;
    for (const DupStatusSlot &slot : context.config->dupSlots) {
        if (slot.pid == 0) continue;
        ++value;
        for (const SlotField &field : SlotFields) store_slot_field(dp, result, value, slot, field);
    }
    return 0;
}

int VELDALoggerStatusCountDatabase(DP *dp) {
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) return 0;
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH);
    return static_cast<int>(
        std::count_if(std::begin(context.config->dupSlots), std::end(context.config->dupSlots),
                      [](const DupStatusSlot &slot) { return slot.pid > 0 && slot.outputDevice == DatabaseDevice; }));
}
