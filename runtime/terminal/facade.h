// facade.h - the terminal as words: crt, crt_line, print_message, input, prompt, echo, at. They act on the calling
// thread's session.
#pragma once

#include <string>

#include "runtime/process/facade.h"
#include "runtime/terminal/terminal.h"

namespace velda {

namespace detail {
inline void crt_item(DP *dp, const VAR &item) { VLibFCRT_VB(dp, &item); }
inline void add_parameter(std::string &message, const VAR &parameter) {
    message += VM;
    message += parameter.view();
}
}  // namespace detail

// CRT a, b, c: with no new line behind.
template <class... Items>
void crt(const Items &...items) {
    DP *const dp = velda_getdp();
    VLibFCRTBEGIN(dp);
    (detail::crt_item(dp, items), ...);
    VLibFCRTEND(dp);
}

// The same with a new line behind; with no item a new line alone.
template <class... Items>
void crt_line(const Items &...items) {
    DP *const dp = velda_getdp();
    VLibFCRTBEGIN(dp);
    (detail::crt_item(dp, items), ...);
    VLibFCRTCR(dp);
    VLibFCRTEND(dp);
}

// Prints a system message: its key and parameters, or plain text alone.
template <class... Parameters>
void print_message(const VAR &key, const Parameters &...parameters) {
    std::string message = key.str();
    (detail::add_parameter(message, parameters), ...);
    const VAR cell(message);
    VLibFPRINTERR_VBB(velda_getdp(), &cell, nullptr);
}

// How an INPUT differs from the plain one.
struct InputOptions {
    int length = VELDA_INPUT_ANY_LENGTH;  // the greatest number of bytes, or one of the VELDA_INPUT_ lengths
    int flags = 0;                        // VELDA_INPUT_ bits
    int timeout_tenths = 0;               // 0: none
};

// INPUT: the reply into `target`; false on timeout and at the end of the input.
inline bool input(VAR &target, const InputOptions &options = {}) {
    return VLibFINPUT_IBBBBBIII(velda_getdp(), &target, nullptr, nullptr, nullptr, nullptr, options.length,
                                options.flags, options.timeout_tenths) != 0;
}

// True when stacked data waits for the next input.
inline bool stacked_data() { return static_cast<bool>(system_number(10)); }

// Characters that wait to be read, stacked or typed ahead.
inline int type_ahead() { return static_cast<int>(system_number(14).to_integer()); }

// True when output is shown on a terminal now: somebody reads it page by page.
inline bool output_is_terminal() { return velda_output_is_terminal(velda_getdp()) != 0; }

inline int screen_width() { return VELDAGetOutputSize(velda_getdp(), 2); }
inline int screen_depth() { return VELDAGetOutputSize(velda_getdp(), 3); }

// @(column,row), and @(-1) and its like.
inline VAR at(int column, int row = -1) {
    VAR sequence;
    VLibFCURSOR_BBII(velda_getdp(), &sequence, column, row);
    return sequence;
}

inline void clear_screen() { crt(at(-1)); }

inline void set_prompt(const VAR &text) { VLibFPROMPT_VB(velda_getdp(), &text); }
inline void set_echo(bool on) { VLibFECHO_VIF(velda_getdp(), 0, on ? 1.0 : 0.0); }
inline bool echo_is_on() { return static_cast<bool>(system_number(3024)); }

// Echo is set for a block, and then as it was before.
class EchoScope {
  public:
    explicit EchoScope(bool on) : was_on_(echo_is_on()) { set_echo(on); }
    ~EchoScope() { set_echo(was_on_); }
    EchoScope(const EchoScope &) = delete;
    EchoScope &operator=(const EchoScope &) = delete;

  private:
    bool was_on_;
};

class EchoOff : public EchoScope {
  public:
    EchoOff() : EchoScope(false) {}
};

// The prompt is another one for a block.
class PromptScope {
  public:
    explicit PromptScope(const VAR &text) : before_(system_number(3026)) { set_prompt(text); }
    ~PromptScope() { set_prompt(before_); }
    PromptScope(const PromptScope &) = delete;
    PromptScope &operator=(const PromptScope &) = delete;

  private:
    VAR before_;
};

}  // namespace velda
