// The entries for conversions and formats: each takes the cells apart, calls, and stores the result.
#include "runtime/convert/conversion.h"
#include "runtime/convert/convert.h"
#include "runtime/convert/decimal_text.h"
#include "runtime/convert/format_mask.h"
#include "runtime/process/context.h"

using velda::conversions::Conversion;
using velda::conversions::Converted;
using velda::conversions::DecimalText;
using velda::conversions::Direction;
using velda::conversions::FormatMask;
using velda::conversions::Status;

namespace {

// The last code that ran without a store of its own.
struct SessionConversion {
    Conversion conversion;
};

const Conversion &compiled(DP *dp, void **store, std::string_view code) {
    if (store && !*store) *store = new Conversion();
    Conversion &conversion = store ? *static_cast<Conversion *>(*store) : dp->state<SessionConversion>().conversion;
    if (conversion.code() != code) conversion = Conversion(code);
    return conversion;
}

std::string in_base(const VAR &number, const VAR *base) {
    constexpr int DefaultBase = 16;
    const std::int64_t wanted = !base || base->empty() ? DefaultBase : base->to_integer();
    const auto value = DecimalText::parse(number.view());
    if (!value || wanted < 2 || wanted > 36) return {};
    return velda::conversions::to_base(*value, static_cast<int>(wanted)).value_or("");
}

}  // namespace

extern "C" {

int VLibGConvRun2(DP *dp, void **store, VAR *target, const VAR *source, const VAR *conversion, int direction, int) {
    const Direction way = direction == VELDA_CONVERT_INPUT ? Direction::Input : Direction::Output;
    const Converted result = compiled(dp, store, conversion->view()).run(source->view(), way);
    *target = std::string_view(result.text);
    return static_cast<int>(result.status);
}

void VLibGConvCCBFree(DP *, void **store) {
    if (!store) return;
    delete static_cast<Conversion *>(*store);
    *store = nullptr;
}

VAR *VLibGDTX_BBBB(DP *, VAR *target, const VAR *number, const VAR *base) {
    const std::string text = in_base(*number, base);
    *target = std::string_view(text);
    return target;
}

VAR *VLibGFORMAT_BBBBB(DP *, VAR *target, const VAR *source, const VAR *mask, VAR *status) {
    const auto compiled_mask = FormatMask::compile(mask->view());
    const Converted result =
        compiled_mask ? compiled_mask->apply(source->view()) : Converted{source->str(), Status::BadCode};
    *target = std::string_view(result.text);
    if (status) *status = VAR(static_cast<int>(result.status));
    return target;
}

}  // extern "C"
