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

/// The directory for bodies that are too large for memory and for partial bodies.
///
/// Clients in several processes may share it: each locks the bodies that it uses. Files have mode
/// 0600 and a new directory 0700, regardless of the umask. The mode of an existing directory with
/// other files in it is not changed. Thread-safe.
class SpoolDirectory {
 public:
  /// `settings` must outlive the object. Does not access the disk.
  explicit SpoolDirectory(const TransferSettings& settings);

  /// False if no directory was set; all bodies then stay in memory.
  [[nodiscard]] bool isUsable() const noexcept { return !path_.empty(); }

  /// Removes partial bodies that cannot be resumed or are too old, then the oldest ones until their
  /// total size is within the limit. Leaves bodies in use alone. Ignores errors.
  void sweep();

  /// The partial body of the URL, locked; nullptr if there is none or another client uses it.
  /// Bodies that other clients left since the last sweep may not be found.
  [[nodiscard]] std::unique_ptr<PartialBody> find(const URL& url) const;
  /// A new body for the URL, locked. Creates the directory. Fails if all slots are in use.
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
  // The names under which there may be a partial body. Most files are small and never have one;
  // this saves them a disk access.
  mutable Mutex namesMutex_;
  std::set<std::string> names_ KIV_GUARDED_BY(namesMutex_);
};

}  // namespace kiv
