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

/// A pool of reusable body buffers, to avoid page faults. Thread-safe.
class KIV_EXPORT BodyBuffers : public std::enable_shared_from_this<BodyBuffers> {
 public:
  /// Keeps unused buffers of at least `leastKept` bytes each and at most `most` bytes in total.
  explicit BodyBuffers(std::int64_t most);

  /// An empty string with a capacity of at least `size`.
  std::string take(std::size_t size);
  /// Data of the bytes. When its last copy is destroyed, the buffer returns to the pool. The data
  /// keeps the pool alive.
  Data data(std::string bytes);
  /// Returns a buffer to the pool, or frees it if the pool does not keep it.
  void giveBack(std::string buffer);

  static constexpr std::size_t leastKept = std::size_t{4} * 1024;

 private:
  const std::size_t most_;
  Mutex mutex_;
  std::vector<std::string> spare_ KIV_GUARDED_BY(mutex_);
  std::size_t spareBytes_ KIV_GUARDED_BY(mutex_) = 0;
};

}  // namespace kiv
