// An error keeps its message in a dictionary, so that other entries can be added without changing
// the type.

#include "KivPlatform/Foundation/values/Error.h"

#include <utility>

namespace kiv {

Error::Error(std::string_view errorDomain, std::int64_t errorCode, Dictionary information)
    : domain(errorDomain), code(errorCode), userInfo(std::move(information)) {}

Error::Error(std::string_view errorDomain, std::int64_t errorCode, std::string_view message)
    : Error(errorDomain, errorCode, Dictionary{{LocalizedDescriptionKey, message}}) {}

std::string Error::localizedDescription() const {
  return userInfo[LocalizedDescriptionKey].string();
}

std::string Error::description() const {
  return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" +
         localizedDescription() + "\"";
}

bool operator==(const Error& a, const Error& b) noexcept {
  return a.domain == b.domain && a.code == b.code && a.userInfo == b.userInfo;
}

Error systemError(int number, std::string_view what, std::string_view path) {
  std::string message = "Could not ";
  message.append(what).append(" \"").append(path).append("\": ");
  message += std::error_code(number, std::generic_category()).message() + ".";
  return Error(SystemErrorDomain, number, message);
}

bool isSystemError(const Error& error, std::errc number) noexcept {
  return error.domain == SystemErrorDomain && error.code == static_cast<int>(number);
}

}  // namespace kiv
