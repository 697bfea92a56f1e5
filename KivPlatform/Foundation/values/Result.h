#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"

namespace kiv {

/// The outcome of an operation: success or an error. It has the size of a pointer, and success
/// needs no allocation.
///
///     if (Status status = file.synchronize(); !status) return status;
///     return {};
class [[nodiscard]] Status {
 public:
  /// Success.
  Status() noexcept = default;
  Status(Error error) : error_(std::make_unique<Error>(std::move(error))) {}

  /// True on success.
  explicit operator bool() const noexcept { return !error_; }
  /// The error. Undefined behavior on success.
  [[nodiscard]] const Error& error() const& noexcept KIV_LIFETIME_BOUND { return *error_; }
  [[nodiscard]] Error error() && { return std::move(*error_); }

  /// Converts the status for a public operation with an error out-argument: on failure moves the
  /// error to `*place` unless `place` is nullptr. On success `*place` is not changed. Returns true
  /// on success.
  bool reportTo(std::optional<Error>* place) && {
    if (error_ && place) *place = std::move(*error_);
    return !error_;
  }

 private:
  std::unique_ptr<Error> error_;
};

template <class T>
class Result;

namespace detail {
/// The types from which a Result<T> is constructed as a value: those that convert to T.
template <class U, class T>
concept ResultValue = !std::same_as<std::remove_cvref_t<U>, Result<T>> &&
                      !std::same_as<std::remove_cvref_t<U>, Error> &&
                      !std::same_as<std::remove_cvref_t<U>, Status> && std::convertible_to<U, T>;
}  // namespace detail

/// The value that an operation returns, or an error. Members that std::expected (C++23) also has
/// are named the same.
///
///     auto file = files.createFileAtPath(path);
///     if (!file) return file.error();
template <class T>
class [[nodiscard]] Result {
 public:
  template <detail::ResultValue<T> U = T>
  // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): the concept excludes Result
  Result(U&& value) : value_(std::in_place, std::forward<U>(value)) {}
  Result(Error error) : failure_(std::move(error)) {}
  /// `failure` must not be a success.
  Result(Status&& failure) noexcept : failure_(std::move(failure)) {}

  explicit operator bool() const noexcept { return value_.has_value(); }
  [[nodiscard]] bool has_value() const noexcept { return value_.has_value(); }

  /// The value. Undefined behavior on failure. A temporary Result returns it by value, so that a
  /// range-based for loop can use it after the Result is destroyed. For the same reason "->" is
  /// deleted for temporaries.
  [[nodiscard]] T& operator*() & noexcept KIV_LIFETIME_BOUND { return *value_; }
  [[nodiscard]] const T& operator*() const& noexcept KIV_LIFETIME_BOUND { return *value_; }
  [[nodiscard]] T operator*() && { return *std::move(value_); }
  T* operator->() & noexcept KIV_LIFETIME_BOUND { return &*value_; }
  const T* operator->() const& noexcept KIV_LIFETIME_BOUND { return &*value_; }
  T* operator->() && = delete;
  const T* operator->() const&& = delete;
  template <class U>
  [[nodiscard]] T value_or(U&& other) && {
    return std::move(value_).value_or(std::forward<U>(other));
  }
  /// The value, or nothing on failure, for callers that do not need the error.
  [[nodiscard]] std::optional<T> toOptional() && { return std::move(value_); }

  /// The error. Undefined behavior on success.
  [[nodiscard]] const Error& error() const& noexcept KIV_LIFETIME_BOUND { return failure_.error(); }
  [[nodiscard]] Error error() && { return std::move(failure_).error(); }

  /// Converts the result for a public operation with an error out-argument: on failure moves the
  /// error to `*place` unless `place` is nullptr. On success `*place` is not changed.
  std::optional<T> reportTo(std::optional<Error>* place) && {
    if (!value_) std::move(failure_).reportTo(place);
    return std::move(value_);
  }

  /// True on success if the value equals `other`.
  template <class U>
  [[nodiscard]] friend bool operator==(const Result& result, const U& other) {
    return result.value_ && *result.value_ == other;
  }

 private:
  std::optional<T> value_;
  Status failure_;
};

}  // namespace kiv
