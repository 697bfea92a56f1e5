#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Value.h"

namespace kiv {

/// The key of an error's message in its user information.
inline constexpr std::string_view LocalizedDescriptionKey = "localizedDescription";

/// What went wrong: a domain, a code within it, and a dictionary that holds the message.
struct KIV_EXPORT Error {
  std::string domain;
  std::int64_t code = 0;
  Dictionary userInfo;

  Error(std::string_view errorDomain, std::int64_t errorCode, Dictionary information);
  /// An error whose user information holds exactly one entry, the message.
  Error(std::string_view errorDomain, std::int64_t errorCode, std::string_view message);
  Error(std::string_view errorDomain, std::int64_t errorCode, const char* message)
      : Error(errorDomain, errorCode, std::string_view(message)) {}
  Error(std::string_view errorDomain, std::int64_t errorCode, const std::string& message)
      : Error(errorDomain, errorCode, std::string_view(message)) {}

  /// The message for a person, or an empty string if there is none.
  [[nodiscard]] std::string localizedDescription() const;
  /// One line for a log: domain, code and message.
  [[nodiscard]] std::string description() const;

  KIV_EXPORT friend bool operator==(const Error& a, const Error& b) noexcept;
};

/// Domain of the errors that the operating system reports; the code is its error number.
inline constexpr std::string_view SystemErrorDomain = "kiv.System";

/// The operating system's error of that number, met while doing `what` ("write", "rename") with
/// the file at `path`.
KIV_EXPORT Error systemError(int number, std::string_view what, std::string_view path);

/// True if it is the operating system's error with that number.
KIV_EXPORT bool isSystemError(const Error& error, std::errc number) noexcept;

}  // namespace kiv
