// base64.h - base 64 with padding and without line ends (RFC 4648, section 4). Private to the runtime.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velda::crypt {

std::string to_base64(std::string_view bytes);

// None for anything that to_base64 would not have written.
std::optional<std::string> from_base64(std::string_view text);

}  // namespace velda::crypt
