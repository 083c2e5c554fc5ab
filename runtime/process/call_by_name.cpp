#include "runtime/process/call_by_name.h"

#include <dlfcn.h>

#include <array>
#include <cassert>
#include <cerrno>
#include <cstdarg>
#include <utility>

#include "runtime/process/cataloged_objects.h"
#include "runtime/process/stop.h"

namespace velda {
namespace {

// Calls by number of arguments: C has no way to build an argument list at run time.
using Caller = void (*)(VELDASubroutine, DP *, const char *, VAR *const *);

template <std::size_t>
using CellPointer = VAR *;

template <std::size_t... I>
void call_with(VELDASubroutine address, DP *dp, const char *letters, VAR *const *cells, std::index_sequence<I...>) {
    reinterpret_cast<void (*)(DP *, const char *, CellPointer<I>...)>(address)(dp, letters, cells[I]...);
}

template <std::size_t Count>
void call_counted(VELDASubroutine address, DP *dp, const char *letters, VAR *const *cells) {
    call_with(address, dp, letters, cells, std::make_index_sequence<Count>());
}

template <std::size_t... Count>
constexpr std::array<Caller, sizeof...(Count)> make_callers(std::index_sequence<Count...>) {
    return {&call_counted<Count>...};
}

constexpr auto Callers = make_callers(std::make_index_sequence<VELDA_MAX_ARGUMENTS + 1>());

VELDASubroutine loaded_symbol(const std::string &symbol) {
    return reinterpret_cast<VELDASubroutine>(dlsym(RTLD_DEFAULT, symbol.c_str()));
}

[[noreturn]] void fail_call(DP *dp, std::string_view name) {
    fail_command(dp, ENOENT, std::string("SUBROUTINE_CALL_FAIL") + VM + std::string(name));
}

}  // namespace

std::string subroutine_symbol(std::string_view name) {
    std::string symbol = "VBC_";
    for (const char byte : name) {
        if (byte == '_')
            symbol += "_5F";
        else if (byte == '-')
            symbol += "_2D";
        else
            symbol += byte;
    }
    return symbol;
}

VELDASubroutine find_subroutine(std::string_view name) {
    if (name.empty()) return nullptr;
    const std::string symbol = subroutine_symbol(name);
    if (const auto address = loaded_symbol(symbol)) return address;
    // Natively written subroutines may be exported under the plain spelling alone.
    if (name.find('_') != std::string_view::npos && name.find('-') == std::string_view::npos) {
        if (const auto address = loaded_symbol("VBC_" + std::string(name))) return address;
    }
    return find_cataloged_symbol(symbol);
}

void call_subroutine(DP *dp, VELDASubroutine address, std::span<VAR *const> arguments) {
    assert(arguments.size() < Callers.size());
    const std::string letters(arguments.size(), 'V');
    Callers[arguments.size()](address, dp, letters.c_str(), arguments.data());
}

void call_by_name(DP *dp, std::string_view name, std::span<VAR *const> arguments) {
    const VELDASubroutine address = find_subroutine(name);
    if (!address || arguments.size() > VELDA_MAX_ARGUMENTS) fail_call(dp, name);
    call_subroutine(dp, address, arguments);
}

}  // namespace velda

VELDASubroutine VediObjectFindFunction(DP *, const char *name, int) { return velda::find_subroutine(name); }

void VLibCCALL_FUNCTION(DP *dp, const char *name, int count, ...) {
    if (count < 0 || count > VELDA_MAX_ARGUMENTS) velda::fail_call(dp, name);
    std::array<VAR *, VELDA_MAX_ARGUMENTS> cells;
    va_list arguments;
    va_start(arguments, count);
    for (int i = 0; i < count; ++i) cells[static_cast<std::size_t>(i)] = va_arg(arguments, VAR *);
    va_end(arguments);
    velda::call_by_name(dp, name, std::span(cells.data(), static_cast<std::size_t>(count)));
}

VELDASubroutine VLibCCALL_DIR_DYN_NOERROR(DP *, const char *name) { return velda::find_subroutine(name); }

int VELDASubroutineExist(DP *dp, VAR *result, const VAR *name) {
    const int exists = VediObjectFindFunction(dp, name->str().c_str(), 2) ? 1 : 0;
    *result = VAR(exists);
    return exists;
}

int VELDACallCustomerCustom(DP *dp, VAR *cell) {
    const VELDASubroutine custom = VLibCCALL_DIR_DYN_NOERROR(dp, "VBCUserCustomiseDisplay");
    if (!custom) return 0;
    velda::call_subroutine(dp, custom, std::span<VAR *const>(&cell, 1));
    return 1;
}
