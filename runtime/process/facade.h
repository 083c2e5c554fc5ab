// facade.h - the dialect's words for commands, commons, calls by name, SYSTEM(n), emulation and environment.
//
// They work on the calling thread's context, which inside a subroutine or a command is the one it was called with.
#ifndef VELDA_RUNTIME_PROCESS_FACADE_H
#define VELDA_RUNTIME_PROCESS_FACADE_H

#include <array>
#include <cassert>
#include <cstddef>
#include <utility>

#include "runtime/config/config.h"
#include "runtime/process/process.h"
#include "runtime/process/subroutine.h"

namespace velda {

namespace detail {
template <std::size_t Count, std::size_t... I>
[[noreturn]] void stop_with(int mode, const std::array<VAR, Count> &texts, std::index_sequence<I...>) {
    VLibCSTOP_VI(velda_getdp(), mode, static_cast<int>(Count), &texts[I]...);
}
}  // namespace detail

// STOP, and with texts STOP with a message: its key and its parameters, as in stop("201", file_name).
template <class... Texts>
[[noreturn]] void stop(const Texts &...texts) {
    detail::stop_with(1, std::array<VAR, sizeof...(Texts)>{VAR(texts)...}, std::index_sequence_for<Texts...>());
}

// ABORT, likewise.
template <class... Texts>
[[noreturn]] void abort_command(const Texts &...texts) {
    detail::stop_with(2, std::array<VAR, sizeof...(Texts)>{VAR(texts)...}, std::index_sequence_for<Texts...>());
}

// EXIT(code).
[[noreturn]] inline void exit_command(int code) { VLibCEXIT_VI(velda_getdp(), code, 0); }

// CHAIN command.
[[noreturn]] inline void chain(const VAR &command) { VLibCCHAIN_VB(velda_getdp(), &command); }

// EXECUTE command RETURNING returning CAPTURING capturing, where either may be absent. The exit code.
inline int execute(const VAR &command, VAR *returning = nullptr, VAR *capturing = nullptr) {
    return VLibCPERFORM_IIBBBBBBB(velda_getdp(), 0, &command, returning, capturing, nullptr, nullptr, nullptr, nullptr);
}

// DATA line.
inline void stack_data(const VAR &line) { VLibCDATA_VIB(velda_getdp(), 1, &line); }

// What whoever executed this command reads as SYSTEM(0).
inline void set_return_code(int code) { VELDASetSystemReturnCode(velda_getdp(), code); }

// CALLONEXIT(name): false when there is no such subroutine.
inline bool call_on_exit(const VAR &name) { return VLibCCALLONEXIT_IB(velda_getdp(), &name) != 0; }

// CALL @name(arguments).
template <class... Cells>
void call(const char *name, Cells &...arguments) {
    static_assert(sizeof...(Cells) <= VELDA_MAX_ARGUMENTS);
    VLibCCALL_FUNCTION(velda_getdp(), name, static_cast<int>(sizeof...(Cells)), static_cast<VAR *>(&arguments)...);
}

inline bool subroutine_exists(const char *name) { return VediObjectFindFunction(velda_getdp(), name, 2) != nullptr; }

// SYSTEM(number).
inline VAR system_number(int number) {
    VAR value;
    VLibESYSTEM_BBI(velda_getdp(), &value, number);
    return value;
}

// An @-variable, to be read or stored into.
inline VAR &at_variable(int number) { return *VLibEATFUNC_BI(velda_getdp(), number); }

// An emulation setting.
inline int emulation(int number) { return VELDAEmulateGETINT(velda_getdp(), number); }

// GETENV(name): "" when it is not set.
inline VAR environment(const VAR &name) {
    VAR value;
    VLibEGETENV_BBB(velda_getdp(), &value, &name);
    return value;
}

// PUTENV("NAME=value"): false for a text of another form.
inline bool set_environment(const VAR &assignment) { return VLibEPUTENV_IB(velda_getdp(), &assignment) != 0; }

inline VAR current_directory() {
    VAR path;
    VLibEGETCWD_IB(velda_getdp(), &path);
    return path;
}

inline void sleep_seconds(const VAR &seconds) { VLibESLEEP_VB(velda_getdp(), &seconds); }

// A named common block, attached for the length of a subroutine: `CommonBlock util("VELDA_dUtil", 100); util[0] =
// args;`
class CommonBlock {
  public:
    CommonBlock(const char *name, int cells) : name_(name), cells_(cells) {
        VLibCAttachCommon_VSSVI(velda_getdp(), name_, &base_, cells_, nullptr);
    }

    VAR &operator[](int cell) {
        assert(cell >= 0 && cell < cells_);
        return base_[cell];
    }

    int size() const { return cells_; }
    VAR *begin() { return base_; }
    VAR *end() { return base_ + cells_; }

    // After a CALL, as the dialect does.
    void reload() { VLibCReloadCommon_VSSVI(velda_getdp(), name_, &base_, cells_, nullptr); }

  private:
    const char *name_;
    VAR *base_ = nullptr;
    int cells_;
};

}  // namespace velda

#endif
