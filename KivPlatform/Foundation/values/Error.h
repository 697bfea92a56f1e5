#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Value.h"

namespace kiv {

/// The key of the message in Error::userInfo.
inline constexpr std::string_view LocalizedDescriptionKey = "localizedDescription";

/// An error: a domain, a code that is unique within the domain, and a dictionary with the message.
struct KIV_EXPORT Error {
  std::string domain;
  std::int64_t code = 0;
  Dictionary userInfo;

  Error(std::string_view errorDomain, std::int64_t errorCode, Dictionary information);
  /// An error whose userInfo holds only the message.
  Error(std::string_view errorDomain, std::int64_t errorCode, std::string_view message);
  Error(std::string_view errorDomain, std::int64_t errorCode, const char* message)
      : Error(errorDomain, errorCode, std::string_view(message)) {}
  Error(std::string_view errorDomain, std::int64_t errorCode, const std::string& message)
      : Error(errorDomain, errorCode, std::string_view(message)) {}

  /// The message for the user; empty if there is none.
  [[nodiscard]] std::string localizedDescription() const;
  /// Domain, code and message, for a log. Control characters of the message are not escaped.
  [[nodiscard]] std::string description() const;

  KIV_EXPORT friend bool operator==(const Error& a, const Error& b) noexcept;
};

/// Domain of the operating system's errors; the code is an errno value.
inline constexpr std::string_view SystemErrorDomain = "kiv.System";

/// The error for an errno value. `what` ("write", "rename") and `path` are the failed operation and
/// its file, for the message.
KIV_EXPORT Error systemError(int number, std::string_view what, std::string_view path);

/// True if the error is of SystemErrorDomain with that errno value.
KIV_EXPORT bool isSystemError(const Error& error, std::errc number) noexcept;

}  // namespace kiv
