#include "runtime/base/result.h"

#include <cstring>

namespace velda {

Error system_error(int number, std::string_view what, std::string_view name)
{
    char reason[256];
    std::string message;
    message.append(what).append(" '").append(name).append("': ").append(strerror_r(number, reason, sizeof reason));
    return {number, message};
}

}  // namespace velda
