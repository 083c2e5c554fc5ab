#include "runtime/convert/conversion.h"

#include "runtime/vdefc.h"

namespace velda::conversions {
namespace {

struct Family {
    std::string_view prefix;
    CompiledStep (*compile)(std::string_view rest);
};

// The first row whose prefix begins the code compiles it.
constexpr Family Families[] = {
    {"D", compile_date},  {"MT", compile_time},  {"G", compile_group},      {"MD", compile_decimal},
    {"ML", compile_left}, {"MR", compile_right}, {"M", compile_characters},
};

CompiledStep compile_step(std::string_view code) {
    for (const Family &family : Families) {
        if (code.starts_with(family.prefix)) return family.compile(code.substr(family.prefix.size()));
    }
    return std::nullopt;
}

}  // namespace

Conversion::Conversion(std::string_view code) : code_(code) {
    while (valid_ && !code.empty()) {
        const std::size_t end = std::min(code.find(VM), code.size());
        if (CompiledStep step = compile_step(code.substr(0, end)))
            steps_.push_back(std::move(*step));
        else
            valid_ = false;
        code.remove_prefix(std::min(end + 1, code.size()));
    }
}

Converted Conversion::run(std::string_view value, Direction direction) const {
    if (!valid_) return {std::string(1, BadCodeResult), Status::BadCode};
    Converted result{std::string(value)};
    for (const Step &step : steps_) {
        result = step(result.text, direction);
        if (result.status != Status::Done) break;
    }
    return result;
}

}  // namespace velda::conversions
