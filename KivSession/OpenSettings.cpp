#include "KivSession/OpenSettings.h"

#include <algorithm>
#include <new>
#include <system_error>

#include "KivResource/KivResource.h"

namespace kiv::session {

namespace {

Error invalid(const std::string& message) {
  return {SystemErrorDomain, static_cast<int>(std::errc::invalid_argument), message};
}

/// Paths and URLs go to the system and to libcurl, which take them up to a zero byte.
bool isText(const Value& value) {
  return value.isString() && value.stringView().find('\0') == std::string_view::npos;
}

bool isAbsolutePath(const Value& value) {
  return isText(value) && value.stringView().starts_with('/');
}

/// Why the member is not valid; empty if it is.
std::string validate(std::string_view name, const Value& value) {
  if (name == "root" || name == "resources") {
    return isAbsolutePath(value) ? "" : "is to be an absolute path";
  }
  if (name == "main" || name == "reserve") {
    return isText(value) || value.isNull() ? "" : "is to be a URL";
  }
  if (name == "lookupRoots") {
    const bool arePaths = std::all_of(value.array().begin(), value.array().end(), isAbsolutePath);
    const bool isValid = value.isNull() || (value.isArray() && arePaths);
    return isValid ? "" : "is to be an array of absolute paths, or null";
  }
  if (name == "settings") return value.isDictionary() ? "" : "is to be an object";
  return "is unknown";
}

std::optional<std::vector<std::string>> lookupRootsIn(const Dictionary& members) {
  if (members.contains("lookupRoots") && members["lookupRoots"].isNull()) return std::nullopt;
  std::vector<std::string> roots;
  for (const Value& root : members["lookupRoots"].array())
    roots.push_back(root.string());
  return roots;
}

std::optional<std::string> textOf(const Value& value) {
  return value.isString() ? std::optional(value.string()) : std::nullopt;
}

}  // namespace

Result<OpenSettings> OpenSettings::read(std::string_view text) {
  const auto value = JSON::read(text);
  if (!value && value.error().code == static_cast<int>(JSONErrorCode::tooLarge)) {
    throw std::bad_alloc();
  }
  if (!value) return invalid(value.error().localizedDescription());
  if (!value->isDictionary()) return invalid("the settings are to be a JSON object");
  const Dictionary& members = value->dictionary();
  for (const auto& entry : members) {
    const auto problem = validate(entry.key(), entry.value);
    if (!problem.empty()) {
      return invalid("\"" + escapingControlCharacters(entry.key()) + "\" " + problem);
    }
  }
  if (!members.contains("root")) return invalid("there is no \"root\"");
  OpenSettings settings{members["root"].string(),   textOf(members["main"]),
                        textOf(members["reserve"]), textOf(members["resources"]),
                        lookupRootsIn(members),     members["settings"].dictionary()};
  const auto known =
      KivRESTServiceSettings::fromDictionary(settings.transfers, KivRESTServiceSettings());
  if (!known) return known.error();
  return settings;
}

}  // namespace kiv::session
