#include "runtime/journal/under_way.h"

#include <signal.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "runtime/base/futex.h"
#include "runtime/base/process_number.h"
#include "runtime/journal/set_change.h"
#include "runtime/journal/writer_state.h"
#include "runtime/process/context.h"
#include "runtime/process/interrupt.h"

namespace velda::journal {

namespace {

constexpr int ProcessBits = 32;

// When a process began, as far as 32 bits tell; 0 when there is no such process.
std::uint64_t beginning_of(pid_t process) {
    constexpr int FieldsBetween = 19;  // behind the name, which may hold blanks, up to the start time
    std::string line;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/stat"), line);
    std::size_t at = line.rfind(')');
    for (int field = 0; field <= FieldsBetween && at != line.npos; ++field) at = line.find(' ', at + 1);
    return at == line.npos ? 0 : std::strtoull(line.c_str() + at, nullptr, 10) & 0xFFFFFFFF;
}

std::uint64_t process_word() {
    static thread_local std::uint64_t word = 0;
    const auto number = static_cast<std::uint64_t>(process_number());
    if ((word & 0xFFFFFFFF) != number) word = beginning_of(process_number()) << ProcessBits | number;
    return word;
}

bool lives(std::uint64_t word) {
    const auto process = static_cast<pid_t>(word & 0xFFFFFFFF);
    if (kill(process, 0) != 0 && errno == ESRCH) return false;
    return beginning_of(process) == word >> ProcessBits;
}

bool is_held(const Configuration &configuration) {
    const std::uint32_t status = std::atomic_ref(configuration.record->status).load(std::memory_order_seq_cst);
    return status == VELDA_LOGGER_SUSPENDED ||
           (status != VELDA_LOGGER_INACTIVE && is_current_set_closed(configuration));
}

void pause_briefly() {
    const timespec moment = {0, 1'000'000};
    nanosleep(&moment, nullptr);
}

// Only the owner of a slot changes what else is in it, so a dead one's is taken over before it is cleared.
bool take(UnderWaySlot &slot, std::uint64_t owner) {
    if (!slot.process.compare_exchange_strong(owner, process_word())) return false;
    slot.count.store(0);
    slot.in_transaction.store(0);
    return true;
}

void leave(UnderWaySlot &slot) {
    slot.in_transaction.store(0, std::memory_order_relaxed);
    slot.count.store(0, std::memory_order_release);
    slot.process.store(0, std::memory_order_release);
}

// A free slot, from the one where this process found one last; or one that a dead process left.
UnderWaySlot *claim_slot(WriterState &state) {
    constexpr unsigned Slots = WriterState::UnderWaySlots;
    static std::atomic<unsigned> last{static_cast<unsigned>(process_number()) % Slots};
    const unsigned first = last.load(std::memory_order_relaxed);
    for (const bool also_of_the_dead : {false, true}) {
        for (unsigned n = 0; n < Slots; ++n) {
            UnderWaySlot &slot = state.under_way[(first + n) % Slots];
            const std::uint64_t owner = slot.process.load();
            if (owner != 0 && !(also_of_the_dead && !lives(owner))) continue;
            if (!take(slot, owner)) continue;
            last.store((first + n) % Slots, std::memory_order_relaxed);
            return &slot;
        }
    }
    return nullptr;
}

}  // namespace

Result<void> wait_while_held(DP *dp, Configuration &configuration) {
    constexpr std::chrono::milliseconds Poll{5};
    while (is_held(configuration)) {
        finish_abandoned_change(dp, configuration);
        const std::array<WatchedWord, 1> words = {WatchedWord{&break_key_word(), break_key_word().load()}};
        poll_interrupt(dp);
        if (is_held(configuration)) sleep_on(words, Poll);
    }
    return {};
}

Result<void> begin_under_way(DP *dp, Configuration &configuration) {
    auto &session = dp->state<JournalSession>();
    if (session.depth > 0) {
        ++session.depth;
        return {};
    }
    for (;;) {
        if (auto may_go = wait_while_held(dp, configuration); !may_go) return may_go;
        UnderWaySlot *const slot = claim_slot(writer_state(*configuration.record));
        if (!slot) {  // so many sessions are under way
            poll_interrupt(dp);
            pause_briefly();
            continue;
        }
        slot->count.store(1, std::memory_order_seq_cst);
        if (!is_held(configuration)) {  // whoever holds writers from now on sees the slot
            session.slot = slot;
            session.depth = 1;
            return {};
        }
        leave(*slot);
    }
}

void end_under_way(JournalSession &session) {
    if (session.depth > 0 && --session.depth == 0) abandon_slot(session);
}

void abandon_slot(JournalSession &session) {
    session.depth = 0;
    UnderWaySlot *const slot = std::exchange(session.slot, nullptr);
    if (slot && slot->process.load() == process_word()) leave(*slot);
}

void mark_transaction(JournalSession &session, bool on) {
    if (session.slot) session.slot->in_transaction.store(on ? 1 : 0);
}

bool is_transaction_under_way(WriterState &state) {
    return std::any_of(std::begin(state.under_way), std::end(state.under_way), [](const UnderWaySlot &slot) {
        return slot.in_transaction.load() != 0 && lives(slot.process.load());
    });
}

void wait_for_sessions_under_way(const JournalSession &caller, Configuration &configuration) {
    for (UnderWaySlot &slot : writer_state(*configuration.record).under_way) {
        if (&slot == caller.slot) continue;
        for (int look = 0; slot.count.load(std::memory_order_seq_cst) != 0; ++look) {
            constexpr int LooksBetweenProofs = 16;
            const std::uint64_t owner = slot.process.load();
            if (look % LooksBetweenProofs == 0 && owner != 0 && !lives(owner) && take(slot, owner)) {
                leave(slot);
                break;
            }
            pause_briefly();
        }
    }
}

}  // namespace velda::journal
