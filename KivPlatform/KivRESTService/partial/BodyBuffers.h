#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/values/Data.h"

namespace kiv {

/// Memory for the bodies that stay in memory, used again when a body goes: what is new to the
/// process has to be found and cleared by the system first. May be used from any thread.
class KIV_EXPORT BodyBuffers : public std::enable_shared_from_this<BodyBuffers> {
 public:
  /// Keeps no more than that many bytes that nobody uses, and no buffer that is not worth it.
  explicit BodyBuffers(std::int64_t most);

  /// An empty string with room for so many bytes, or for more.
  std::string take(std::size_t size);
  /// The bytes, whose memory comes back here with the last copy. Whoever holds one may outlive all
  /// others that use the buffers.
  Data data(std::string bytes);
  void giveBack(std::string buffer);

  static constexpr std::size_t leastKept = std::size_t{4} * 1024;

 private:
  const std::size_t most_;
  Mutex mutex_;
  std::vector<std::string> spare_ KIV_GUARDED_BY(mutex_);
  std::size_t spareBytes_ KIV_GUARDED_BY(mutex_) = 0;
};

}  // namespace kiv
