// What a run keeps for its session, and the slot in which other processes watch it.
//
// The slot has one writer, the run itself, so its counters and its text are stored in place and published, without the
// lock that guards changes of the table: a record costs no system call here.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <new>

#include "journal/duplicator/dup_batch.h"
#include "journal/duplicator/dup_dry_run.h"
#include "journal/duplicator/dup_monitor.h"
#include "journal/duplicator/duplicator.h"
#include "journal/journal.h"
#include "journal/session_block.h"

namespace velda::journal {

namespace {

void close_files(DP *dp, DupContext &context) {
    for (auto &bucket : context.fileCache)
        for (CachedFile &cached : bucket)
            if (cached.file) VediClose(dp, cached.file.get(), 0);
}

template <class Number>
void store(Number &field, Number value) {
    std::atomic_ref<Number>(field).store(value, std::memory_order_relaxed);
}

// The slot's numbers have one writer: a plain load is the present value.
void add(std::uint64_t &counter, std::int64_t amount) {
    const std::atomic_ref<std::uint64_t> shared(counter);
    shared.store(shared.load(std::memory_order_relaxed) + static_cast<std::uint64_t>(amount),
                 std::memory_order_relaxed);
}

}  // namespace

DupContext::DupContext() = default;
DupContext::~DupContext() = default;

DupContext &dup_context(DP *dp) { return SessionBlock<DupContext, close_files>::of(dp, "vlogdupC"); }

DupContext &start_dup_context(DP *dp) {
    DupContext &context = dup_context(dp);
    close_files(dp, context);
    context.~DupContext();
    new (&context) DupContext;
    context.startTicks = steady_milliseconds();
    velda_process_times(dp, &context.startUserSeconds, &context.startSystemSeconds);
    return context;
}

std::int64_t steady_milliseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

std::string set_status_text(DP *dp, std::string_view text) {
    DupStatusSlot &slot = *dup_context(dp).slot;
    std::string before = logger_text(slot.statusText, sizeof slot.statusText);
    char padded[sizeof slot.statusText] = {};
    text.copy(padded, sizeof padded - 1);
    std::memcpy(slot.statusText, padded, sizeof padded);
    VediLoggerMisc(dp, VELDA_LOGGER_PUBLISH);
    return before;
}

void publish_position(const DupContext &context) {
    DupStatusSlot &slot = *context.slot;
    store(slot.lastTime, context.lastTime);
    if (context.input->deviceType != LogSetDevice) return;
    store(slot.inputSetRecords, context.input->recordsRead);
    store(slot.inputSet, static_cast<std::uint32_t>(context.input->set));
    store(context.watch->inputFile, static_cast<std::uint32_t>(context.input->file));
    store(context.watch->inputOffset, context.input->offset);
}

void publish_milestone(const DupContext &context, std::int64_t milestone) { store(context.slot->milestone, milestone); }

void publish_error(const DupContext &context, std::string_view message) {
    DupWatch &watch = *context.watch;
    char text[sizeof watch.lastError] = {};
    message.copy(text, sizeof text - 1);
    std::memcpy(watch.lastError, text, sizeof text);
    store(watch.lastErrorTime, present_time());
}

void show_status(DP *dp, std::string_view text) {
    const DupStatusSlot &slot = *dup_context(dp).slot;
    const bool is_shown = text.size() < sizeof slot.statusText && slot.statusText[text.size()] == '\0' &&
                          text == std::string_view(slot.statusText, text.size());
    if (!is_shown) set_status_text(dp, text);
}

void count_input(DP *dp, std::int64_t bytes) {
    DupStatusSlot &slot = *dup_context(dp).slot;
    add(slot.inputRecords, 1);
    add(slot.inputBytes, bytes);
}

void count_output(DP *dp, std::int64_t bytes, std::int64_t records) {
    DupStatusSlot &slot = *dup_context(dp).slot;
    add(slot.outputRecords, records);
    add(slot.outputBytes, bytes);
}

}  // namespace velda::journal
