// Most bodies are small, and a file for each would cost more than the transfer. So a body starts in
// memory, and moves to the disk only when it becomes large or when its attempt fails and a later
// one can resume it.
//
// Buffers of finished bodies are reused, because a new buffer may cost a page fault for each of its
// pages. Small ones are not kept, since they would save nothing.

#include "KivPlatform/KivRESTService/partial/BodySink.h"

#include <algorithm>
#include <utility>

#include "KivPlatform/KivRESTService/partial/SpoolDirectory.h"

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

BodySink::BodySink(URL url, SpoolDirectory& spool, BodyBuffers& buffers,
                   std::int64_t largestInMemory)
    : url_(std::move(url)),
      spool_(spool),
      buffers_(buffers),
      largestInMemory_(largestInMemory),
      partial_(spool.find(url_)),
      found_(partial_ ? partial_->length() : 0) {}

BodySink::~BodySink() {
  buffers_.giveBack(std::move(memory_));
}

std::optional<RequestedRange> BodySink::range() const {
  if (!partial_ || !partial_->record()) return std::nullopt;
  const PartialRecord& record = *partial_->record();
  if (record.rangeFailed) return std::nullopt;
  std::int64_t first = partial_->length();
  // A range must not begin at the end of the file. If the whole body is kept already, its last byte
  // is requested, to verify that the version has not changed.
  if (record.length) first = std::min(first, *record.length - 1);
  if (first <= 0) return std::nullopt;
  return RequestedRange{first, record.length, record.version};
}

bool BodySink::isFrom(const URL& url) const {
  return partial_ && partial_->record() && partial_->record()->finalURL == url.absoluteString();
}

bool BodySink::begin(const URL& from, const ResponseCheck& response) {
  discard();
  found_ = 0;
  coming_ = PartialRecord();
  coming_.url = url_.absoluteString();
  coming_.finalURL = from.absoluteString();
  coming_.length = response.fileLength();
  response_ = &response;
  const std::int64_t expected = coming_.length.value_or(0);
  if (spool_.isUsable() && expected > largestInMemory_) return moveToDisk();
  // Reserves memory for the whole body, but not too much: Content-Length may be false.
  constexpr std::int64_t largestReserve = 8 * 1024 * 1024;
  memory_ = buffers_.take(static_cast<std::size_t>(std::min(expected, largestReserve)));
  return true;
}

bool BodySink::moveToDisk() {
  coming_.version = response_->version();  // slow, and only a record needs it
  auto created = spool_.create(url_);
  if (!created) return storeError(created.error());
  partial_ = *std::move(created);
  if (Status status = partial_->begin(coming_); !status) return storeError(std::move(status));
  isOnDisk_ = true;
  std::string bytes = std::exchange(memory_, {});
  Status status = partial_->append(bytes);
  buffers_.giveBack(std::move(bytes));
  return storeError(std::move(status));
}

bool BodySink::storeError(Status&& status) {
  return std::move(status).reportTo(&error_);
}

bool BodySink::resume() {
  resumed_ = range()->first;
  isOnDisk_ = true;
  return storeError(partial_->resume(resumed_));
}

bool BodySink::append(std::string_view bytes) {
  if (isOnDisk_) return storeError(partial_->append(bytes));
  memory_.append(bytes);
  const bool isLarge = static_cast<std::int64_t>(memory_.size()) > largestInMemory_;
  return !isLarge || !spool_.isUsable() || moveToDisk();
}

bool BodySink::flush() {
  return !isOnDisk_ || !partial_ || storeError(partial_->flush());
}

void BodySink::keep() {
  if (isOnDisk_ || memory_.empty() || !spool_.isUsable()) return;
  if (response_->version().validator().empty() || moveToDisk()) return;
  discard();
  error_.reset();
}

std::optional<Data> BodySink::finish() {
  if (!isOnDisk_) return buffers_.data(std::move(memory_));
  return PartialBody::finish(std::move(partial_)).reportTo(&error_);
}

void BodySink::toggleRangeRequest() {
  if (partial_ && partial_->record()) partial_->setRangeFailed(!partial_->record()->rangeFailed);
}

void BodySink::discard() {
  if (partial_) partial_->discard();
  partial_.reset();
  isOnDisk_ = false;
  memory_.clear();
  resumed_ = 0;
}

std::int64_t BodySink::length() const noexcept {
  if (isOnDisk_) return partial_ ? partial_->length() : 0;
  return static_cast<std::int64_t>(memory_.size());
}

bool BodySink::hasGrown() const {
  return isOnDisk_ && partial_ && partial_->record() && partial_->length() > found_;
}

}  // namespace kiv
