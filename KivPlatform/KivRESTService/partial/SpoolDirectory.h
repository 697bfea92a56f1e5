#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

class PartialBody;

/// The directory where bodies lie on their way: those that are too large for memory while they come
/// in, and what is kept of those that did not come whole.
///
/// Clients of several processes may use one directory: each body in it is locked by who uses it.
/// What is made here, the directory too, is its owner's alone, whatever the umask. A directory that
/// stands already is left as open as it is if other files lie in it, too.
/// Operations may be called from any thread.
class SpoolDirectory {
 public:
  /// `settings` must outlive the directory. Nothing is made or looked at yet.
  explicit SpoolDirectory(const KivRESTServiceSettings& settings);

  /// False where no directory has been named: every body is to stay in memory.
  [[nodiscard]] bool isUsable() const noexcept { return !path_.empty(); }

  /// Looks at what is there, removes the bodies that cannot be resumed or that have not grown for
  /// too long, and the oldest ones where they are too large together.
  void sweep();

  /// What is kept of the file of the URL; nullptr where nothing is, or another client uses it. What
  /// others have left since the last sweep is not found.
  [[nodiscard]] std::unique_ptr<PartialBody> find(const URL& url) const;
  /// A place for the file of the URL, with nothing in it; nullptr and an error on failure.
  std::unique_ptr<PartialBody> create(const URL& url, std::optional<Error>* error);
  /// Forgets what is kept of the file of the URL, if another client does not use it.
  void forget(const URL& url) const;

 private:
  [[nodiscard]] bool knows(const std::string& name) const;
  void know(const std::string& name);
  bool makeDirectory(std::optional<Error>* error) const;
  [[nodiscard]] std::string stem(const std::string& name, int slot) const;

  const KivRESTServiceSettings& settings_;
  const std::string path_;
  // Of the files of which something may be kept. Most are small and never come here: for them the
  // disk is not even asked.
  mutable Mutex namesMutex_;
  std::set<std::string> names_ KIV_GUARDED_BY(namesMutex_);
};

}  // namespace kiv
