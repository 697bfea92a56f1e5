#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivRESTService/KivRESTServiceValidators.h"

namespace kiv {

struct CachePlace;

/// A configuration as it came from a server, with what to ask for the next one with.
struct KnownConfiguration {
  Data text;
  KivRESTServiceValidators validators;
};

/// The last good configuration on the disk: one private file beside the saved list, which holds the
/// text and its validators, so that both are always of one version. To be used on the manager's
/// queue.
class ConfigurationStore {
 public:
  /// `addresses` are the URL of the configuration and those of its mirrors. A file that was saved
  /// for another first one is ignored. Validators that came from none of them, after a redirect,
  /// are not restored: the file holds digests of URLs only, which may have a password or a token in
  /// them. `largest` is the limit on the bytes of a text. `place` is that of the cache, or nullptr.
  ConfigurationStore(std::vector<std::string> addresses, std::int64_t largest,
                     std::shared_ptr<const CachePlace> place = nullptr);

  /// The saved configuration. Nothing if there is none, or if the file is not what save() writes:
  /// the log then says why.
  [[nodiscard]] std::optional<KnownConfiguration> load() const;
  /// Replaces the file atomically; on failure the former one stays.
  [[nodiscard]] std::optional<Error> save(const KnownConfiguration& configuration) const;

  /// The absolute path of the file of the cache in use; empty if there is no storage root.
  static std::string path();

 private:
  const std::vector<std::string> addresses_;
  const std::uint64_t largest_;
  const std::shared_ptr<const CachePlace> place_;
};

}  // namespace kiv
