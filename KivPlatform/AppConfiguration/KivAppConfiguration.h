#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/Mutex.h"

/// The configuration of the application: the domains of the two file servers.
///
/// The process has one, and each further cache has its own (KivResourceCache). The host sets the
/// domains before the first pass and may change them at any time, from any thread; each download
/// reads them again.
class KIV_EXPORT KivAppConfiguration {
 public:
  /// The configuration of the process.
  static std::shared_ptr<KivAppConfiguration> sharedInstance();

  /// A further configuration, without domains.
  KivAppConfiguration() = default;
  KivAppConfiguration(const KivAppConfiguration&) = delete;
  KivAppConfiguration& operator=(const KivAppConfiguration&) = delete;

  /// The main server with its scheme, such as "https://ads.example/files"; file links are appended
  /// to it. Nothing until the host sets it.
  [[nodiscard]] std::optional<std::string> mainACSDomain() const;
  void setMainACSDomain(std::optional<std::string> domain);

  /// The reserve server in the same form, or nothing.
  [[nodiscard]] std::optional<std::string> reserveACSDomain() const;
  void setReserveACSDomain(std::optional<std::string> domain);

 private:
  mutable kiv::Mutex mutex_;
  std::optional<std::string> mainDomain_ KIV_GUARDED_BY(mutex_);
  std::optional<std::string> reserveDomain_ KIV_GUARDED_BY(mutex_);
};
