// result.h - what a fallible call inside the runtime returns: a value, or an Error that names the thing and the reason.
#pragma once

#include <cassert>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace velda {

// A failure. `number` is a platform error number (errno values: 2 absent, 17 exists, 22 invalid) or one of the internal
// numbers of a subsystem; `message` names the thing, the reason and, where there is one, the way out.
struct Error {
    int number = 0;
    std::string message;
};

// An Error built from errno-like `number`: "WHAT 'NAME': reason".
Error system_error(int number, std::string_view what, std::string_view name);

template <class T>
class [[nodiscard]] Result {
  public:
    Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return content_.index() == 0; }
    explicit operator bool() const { return ok(); }
    T &value() { assert(ok()); return std::get<0>(content_); }
    const T &value() const { assert(ok()); return std::get<0>(content_); }
    T &operator*() { return value(); }
    const T &operator*() const { return value(); }
    T *operator->() { return &value(); }
    const T *operator->() const { return &value(); }
    const Error &error() const { assert(!ok()); return std::get<1>(content_); }

  private:
    std::variant<T, Error> content_;
};

// The result of a call that has nothing to give back.
template <>
class [[nodiscard]] Result<void> {
  public:
    Result() = default;
    Result(Error error) : error_(std::move(error)) {}

    bool ok() const { return !error_; }
    explicit operator bool() const { return ok(); }
    const Error &error() const { assert(!ok()); return *error_; }

  private:
    std::optional<Error> error_;
};

}  // namespace velda
