#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/Value.h"

namespace kiv::session {

/// What a session is opened with.
struct OpenSettings {
  std::string root;  ///< The storage root.
  std::optional<std::string> mainURL;
  std::optional<std::string> reserveURL;
  std::optional<std::string> resources;  ///< The packaged resources; nullopt to look for them.
  /// See KivResourceLookup::setRoots(). By default none: a configuration cannot find out which
  /// other files lie on this computer.
  std::optional<std::vector<std::string>> lookupRoots = std::vector<std::string>();
  Dictionary transfers;  ///< See KivRESTServiceSettings::fromDictionary().

  /// Parses a JSON object. The error's message names the first member that is not valid.
  static Result<OpenSettings> read(std::string_view text);
};

}  // namespace kiv::session
