#pragma once

#include <KivResource/KivResource.h>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the administrator has decided: the contents of the service's JSON file. README.md describes
/// its members.
struct ServiceSettings {
  std::string directory;  ///< Absolute. The service creates it.
  kiv::URL configuration;
  std::vector<kiv::URL> mirrors;  ///< Of the configuration.
  std::chrono::seconds interval{};
  std::string mainServer;
  std::optional<std::string> reserveServer;
  std::string tokenFile;  ///< Absolute, or empty for none.
  std::optional<std::uint64_t> limit;
  KivResourceTrimOptions::Rule trimRule = KivResourceTrimOptions::Rule::orphansOnly;
  KivRESTServiceSettings transfers;

  /// Reads the text. The error says which member is wrong, and what it is to be.
  static kiv::Result<ServiceSettings> read(std::string_view text);

  /// The origins that the token may be sent to: those of all servers above.
  [[nodiscard]] std::vector<std::string> origins() const;
};
