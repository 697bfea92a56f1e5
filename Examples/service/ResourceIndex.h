#pragma once

#include <KivResource/KivResource.h>
#include <memory>
#include <string>
#include <utility>

/// The file "index.json" in the cache, from which another program learns what is loaded. It is
/// replaced in one step, so that a reader sees a former one or the new one. README.md describes it.
///
/// To be used on the queue of the manager.
class ResourceIndex {
 public:
  explicit ResourceIndex(std::shared_ptr<KivResourceCache> cache) : cache_(std::move(cache)) {}

  /// Writes the file, unless it says the same already. A failure goes to the log, and the next call
  /// tries again.
  void publish();

 private:
  const std::shared_ptr<KivResourceCache> cache_;
  kiv::Data published_;
};
