// entries.cpp - the entries of input, screen and terminal settings.
#include <algorithm>
#include <climits>
#include <cstring>

#include "runtime/process/context.h"
#include "runtime/process/interrupt.h"
#include "runtime/process/output.h"
#include "runtime/process/system_numbers.h"
#include "runtime/terminal/device.h"
#include "runtime/terminal/input.h"
#include "runtime/terminal/session.h"
#include "runtime/terminal/terminal.h"

namespace {

constexpr int MillisecondsInTenth = 100;
constexpr int WidthSelector = 2;
constexpr int DepthSelector = 3;

std::optional<int> milliseconds_of(int tenths) {
    if (tenths <= 0) return std::nullopt;
    return std::min(tenths, INT_MAX / MillisecondsInTenth) * MillisecondsInTenth;
}

using velda::SystemNumberProvider;

const SystemNumberProvider Providers[] = {
    {WidthSelector, [](DP *, VAR &target) { target = VAR(velda::screen_columns()); }},
    {DepthSelector, [](DP *, VAR &target) { target = VAR(velda::screen_lines()); }},
    {14, [](DP *dp, VAR &target) { target = VAR(velda::characters_waiting(dp)); }},
    {1005, [](DP *, VAR &target) { target = VAR(velda::key_capability_array()); }},
    {3024, [](DP *dp, VAR &target) { target = VAR(velda::terminal_session(dp).echo ? 1 : 0); }},
    {3026, [](DP *dp, VAR &target) { target = VAR(velda::terminal_session(dp).prompt); }},
};

}  // namespace

int VLibFINPUT_IBBBBBIII(DP *dp, VAR *target, const VAR *, const VAR *, const VAR *, const VAR *, int length, int flags,
                         int timeout) {
    const velda::LineRead read = velda::read_line(dp, {.length = length,
                                                       .prompt_shown = !(flags & VELDA_INPUT_NO_PROMPT),
                                                       .newline_shown = !(flags & VELDA_INPUT_NO_NEWLINE),
                                                       .idle_milliseconds = milliseconds_of(timeout)});
    *target = std::string_view(read.text);
    return read.outcome == velda::LineOutcome::Line;
}

int VLibFIN_IBI(DP *dp, VAR *target, int timeout) {
    velda::prepare_keys(dp);
    const velda::KeyRead key = velda::read_key(dp, {.milliseconds = milliseconds_of(timeout), .ends_on_event = true});
    switch (key.outcome) {
        case velda::KeyOutcome::Key:
            velda::note_input(dp);
            *target = VAR(static_cast<int>(key.byte));
            return 1;
        case velda::KeyOutcome::Timeout:
            return 0;
        case velda::KeyOutcome::End:
            velda::note_end_of_input(dp);
            return -1;
        case velda::KeyOutcome::Event:
            break;
    }
    return -1;
}

int VELDAWindowsInchar(DP *dp, VAR *target, int timeout) {
    const std::uint32_t events_before = dp->event_counter;
    const int result = VLibFIN_IBI(dp, target, timeout);
    return dp->event_counter == events_before ? result : -1;
}

int VRunFStringIn(DP *dp, char *buffer, int size, const char *ends) {
    if (size < 1) return 0;
    const velda::LineRead read = velda::read_quietly(dp, size - 1, ends ? ends : "");
    std::memcpy(buffer, read.text.data(), read.text.size());
    buffer[read.text.size()] = '\0';
    return read.outcome == velda::LineOutcome::End ? -1 : static_cast<int>(read.text.size());
}

void VLibFPROMPT_VB(DP *dp, const VAR *text) { velda::terminal_session(dp).prompt = text->str(); }

void VLibFECHO_VIF(DP *dp, int, double state) {
    velda::terminal_session(dp).echo = state != 0.0;
    // What is typed before it is asked for must not show either.
    if (state == 0.0) velda::enter_session_mode();
}

void VLibFBREAKKEY_VF(DP *dp, double state) {
    velda::enable_break_key(dp, state != 0.0);
    velda::set_break_keys(state != 0.0);
}

VAR *VLibFCURSOR_BBII(DP *, VAR *target, int column, int row) {
    *target = std::string_view(velda::cursor_sequence(column, row));
    return target;
}

int VRunFTerminalWrite(DP *dp, const char *text, int length, int) {
    velda::flush_output(dp);
    return velda::write_to_terminal({text, static_cast<std::size_t>(std::max(length, 0))});
}

const char *VRunFTerminfo(DP *, int number) { return velda::terminal_description()->by_number(number); }

int VELDAGetOutputSize(DP *, int selector) {
    if (selector == WidthSelector) return velda::screen_columns();
    return selector == DepthSelector ? velda::screen_lines() : 0;
}

int velda_output_is_terminal(DP *dp) { return velda::output_is_terminal(dp); }

int VELDAGetTTYName(DP *, VAR *target) {
    const std::string name = velda::terminal_name();
    *target = std::string_view(name);
    return !name.empty();
}
