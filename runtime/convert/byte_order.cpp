#include <bit>
#include <cstring>

#include "runtime/convert/convert.h"

namespace {

// The same function turns the machine's order into the files' and back.
template <class T>
T file_order(T value) {
    if constexpr (std::endian::native == std::endian::little) {
        return sizeof(T) == 4 ? static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(value)))
                              : static_cast<T>(__builtin_bswap64(static_cast<std::uint64_t>(value)));
    }
    return value;
}

template <class T>
T get(const void *buffer) {
    T value;
    std::memcpy(&value, buffer, sizeof value);
    return file_order(value);
}

template <class T>
void put(void *buffer, T value) {
    value = file_order(value);
    std::memcpy(buffer, &value, sizeof value);
}

}  // namespace

extern "C" {
int32_t vgetint32(const void *buffer) { return get<std::int32_t>(buffer); }
void vputint32(void *buffer, int32_t value) { put(buffer, value); }
int64_t vgetlong64(const void *buffer) { return get<std::int64_t>(buffer); }
void vputlong64(void *buffer, int64_t value) { put(buffer, value); }
}
