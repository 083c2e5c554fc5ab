// bits.cpp - the bit register of a context, and bit arithmetic.
#include <cstdint>

#include "runtime/process/context.h"
#include "runtime/value/value.h"

namespace {

struct BitRegister {
    std::uint64_t bits = 0;
};

constexpr int RegisterBits = 64;

}  // namespace

VAR *VLibEBITLOAD_BBB(DP *dp, VAR *target, const VAR *value) {
    const std::int64_t bits = velda_to_integer(value);
    dp->state<BitRegister>().bits = static_cast<std::uint64_t>(bits);
    velda_store_integer(dp, target, bits);
    return target;
}

int VLibEBITCHECK_II(DP *dp, int bit) {
    return bit >= 0 && bit < RegisterBits && (dp->state<BitRegister>().bits >> bit & 1);
}

VAR *VLibEBITFUNC_BBBBI(DP *dp, VAR *target, const VAR *value, const VAR *mask, int operation) {
    std::int64_t bits = velda_to_integer(value);
    if (operation == VELDA_BIT_AND) bits &= velda_to_integer(mask);
    if (operation == VELDA_BIT_OR) bits |= velda_to_integer(mask);
    velda_store_integer(dp, target, bits);
    return target;
}
