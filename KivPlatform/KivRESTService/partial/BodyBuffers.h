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

/// Pool of reusable body buffers, to avoid page faults. Thread-safe.
class KIV_EXPORT BodyBuffers : public std::enable_shared_from_this<BodyBuffers> {
 public:
  /// Keeps at most `most` unused bytes, in buffers of at least `leastKept`.
  explicit BodyBuffers(std::int64_t most);

  /// An empty string with a capacity of at least `size`.
  std::string take(std::size_t size);
  /// Data of the bytes, whose buffer returns to the pool with the last copy. The data keeps the
  /// pool alive.
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
