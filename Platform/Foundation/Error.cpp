#include "Platform/Foundation/Error.h"

#include <system_error>
#include <utility>

namespace kiv {

Error::Error(std::string_view domain, std::int64_t code, Dictionary userInfo)
    : domain(domain), code(code), userInfo(std::move(userInfo)) {}

Error::Error(std::string_view domain, std::int64_t code, std::string_view message)
    : Error(domain, code, Dictionary{{LocalizedDescriptionKey, message}}) {}

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

bool fail(std::optional<Error>* place, Error error) {
  if (place) *place = std::move(error);
  return false;
}

Error systemError(int number, std::string_view what, std::string_view path) {
  std::string message = "Could not ";
  message.append(what).append(" \"").append(path).append("\": ");
  message += std::error_code(number, std::generic_category()).message() + ".";
  return Error(SystemErrorDomain, number, message);
}

}  // namespace kiv
