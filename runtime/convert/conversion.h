// conversion.h - compiled conversion codes. Private to the runtime.
//
// A code is compiled once into steps; each step turns a text into another in either direction. A family of codes is a
// row of the table in conversion.cpp with the function that compiles what follows the row's prefix.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velda::conversions {

enum class Direction { Input = 0, Output = 1 };
enum class Status { Done = 0, BadValue = 1, BadCode = 2 };

struct Converted {
    std::string text;
    Status status = Status::Done;
};

// What every step gives for a value that does not suit its code: unchanged on output, "" on input.
inline Converted unsuitable(std::string_view value, Direction direction) {
    return {direction == Direction::Output ? std::string(value) : std::string(), Status::BadValue};
}

using Step = std::function<Converted(std::string_view value, Direction direction)>;
using CompiledStep = std::optional<Step>;  // none: the code is bad

class Conversion {
  public:
    // The code that stands for a bad code's result.
    static constexpr char BadCodeResult = '\xFF';

    Conversion() = default;
    explicit Conversion(std::string_view code);

    const std::string &code() const { return code_; }
    // Runs the steps in order and stops at the first value that does not suit.
    Converted run(std::string_view value, Direction direction) const;

  private:
    std::string code_;
    std::vector<Step> steps_;
    bool valid_ = true;
};

// Compilers of the families; `rest` is what follows the family's prefix.
CompiledStep compile_date(std::string_view rest);        // D
CompiledStep compile_time(std::string_view rest);        // MT
CompiledStep compile_group(std::string_view rest);       // G
CompiledStep compile_characters(std::string_view rest);  // MC, MX, MY: the whole code without its M
CompiledStep compile_decimal(std::string_view rest);     // MD
CompiledStep compile_left(std::string_view rest);        // ML
CompiledStep compile_right(std::string_view rest);       // MR

}  // namespace velda::conversions
