#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

class PartialBody;

/// The directory of bodies that are too large for memory, and of partial bodies.
///
/// Clients of several processes may share it: each locks the bodies that it uses. Everything
/// created here has mode 0600 or 0700, whatever the umask. The mode of an existing directory with
/// other files in it is not changed. Thread-safe.
class SpoolDirectory {
 public:
  /// `settings` must outlive the object. Nothing is created or read yet.
  explicit SpoolDirectory(const TransferSettings& settings);

  /// False if no directory was set: all bodies stay in memory.
  [[nodiscard]] bool isUsable() const noexcept { return !path_.empty(); }

  /// Removes the partial bodies that cannot be resumed or are too old, and the oldest ones if all
  /// together are too large.
  void sweep();

  /// The partial body of the URL; nullptr if there is none or another client uses it. Those that
  /// other clients have left since the last sweep are not found.
  [[nodiscard]] std::unique_ptr<PartialBody> find(const URL& url) const;
  /// A new, empty body for the URL.
  Result<std::unique_ptr<PartialBody>> create(const URL& url);
  /// Removes the partial body of the URL, unless another client uses it.
  void forget(const URL& url) const;

 private:
  [[nodiscard]] bool knows(const std::string& name) const;
  void know(const std::string& name);
  Status makeDirectory() const;
  [[nodiscard]] std::string stem(const std::string& name, int slot) const;

  const TransferSettings& settings_;
  const std::string path_;
  // The names under which a partial body may be found: spares a look at the disk for most files,
  // which are small and never come here.
  mutable Mutex namesMutex_;
  std::set<std::string> names_ KIV_GUARDED_BY(namesMutex_);
};

}  // namespace kiv
