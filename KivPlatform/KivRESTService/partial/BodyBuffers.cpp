// A buffer from the allocator may cost a page fault for each of its pages. Buffers of finished
// bodies are reused instead. Small ones are not kept: they would not save anything.

#include "KivPlatform/KivRESTService/partial/BodyBuffers.h"

#include <algorithm>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"

namespace kiv {

BodyBuffers::BodyBuffers(std::int64_t most)
    : most_(static_cast<std::size_t>(std::max<std::int64_t>(most, 0))) {}

std::string BodyBuffers::take(std::size_t size) {
  std::string buffer;
  {
    const MutexLock lock(mutex_);
    if (!spare_.empty()) {
      buffer = std::move(spare_.back());
      spare_.pop_back();
      spareBytes_ -= buffer.capacity();
    }
  }
  buffer.reserve(size);
  return buffer;
}

Data BodyBuffers::data(std::string bytes) {
  return Data(std::move(bytes), [self = shared_from_this()](std::string buffer) {
    self->giveBack(std::move(buffer));
  });
}

void BodyBuffers::giveBack(std::string buffer) {
  buffer.clear();
  const std::size_t capacity = buffer.capacity();
  if (capacity < leastKept) return;
  const MutexLock lock(mutex_);
  if (capacity > most_ || spareBytes_ > most_ - capacity) return;
  spareBytes_ += capacity;
  spare_.push_back(std::move(buffer));
}

}  // namespace kiv
