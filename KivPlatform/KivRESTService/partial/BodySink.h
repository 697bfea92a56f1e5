#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/PartialBody.h"

namespace kiv {

class SpoolDirectory;

/// A pool of reusable body buffers, to avoid page faults. Thread-safe.
class BodyBuffers : public std::enable_shared_from_this<BodyBuffers> {
 public:
  /// Keeps unused buffers of at least `leastKept` bytes each and at most `most` bytes in total.
  explicit BodyBuffers(std::int64_t most);

  /// An empty string with a capacity of at least `size`.
  std::string take(std::size_t size);
  /// Makes Data of the bytes. When its last copy is destroyed, the buffer returns to the pool. The
  /// data keeps the pool alive.
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

/// Receives the body of one attempt: in memory while it is small, otherwise in the spool directory,
/// where it may continue the partial body of an earlier attempt.
///
/// A failed attempt leaves its partial body for the next one; begin() discards it. The operations
/// are called from libcurl's callbacks, which can only continue or abort the transfer. So they
/// return false on failure, and error() has the reason. Not thread-safe.
class BodySink {
 public:
  /// Finds and locks the partial body of the URL, if there is one. `spool` and `buffers` must
  /// outlive the sink. `largestInMemory` is in bytes.
  BodySink(URL url, SpoolDirectory& spool, BodyBuffers& buffers, std::int64_t largestInMemory);
  ~BodySink();
  BodySink(const BodySink&) = delete;
  BodySink& operator=(const BodySink&) = delete;

  /// The range to request. Nothing if the whole file must be requested, because there is no partial
  /// body or the last range request failed.
  [[nodiscard]] std::optional<RequestedRange> range() const;
  /// True if the partial body came from that URL (after redirects).
  [[nodiscard]] bool isFrom(const URL& url) const;

  /// Begins a whole body from that URL (after redirects). `response` must outlive the body, which
  /// ends with finish(), keep() or discard().
  bool begin(const URL& from, const ResponseCheck& response);
  /// Continues the partial body with the range that range() returned.
  bool resume();
  /// May buffer the bytes until flush().
  bool append(std::string_view bytes);
  bool flush();
  /// Ends an incomplete body. Writes it to the disk if it is in memory and a later attempt can
  /// resume it.
  void keep();
  /// Ends a complete body and returns its data; nothing on failure.
  std::optional<Data> finish();
  /// Called if the response contained no part of the file. The next attempt requests the whole file
  /// if this one requested a range, and vice versa.
  void toggleRangeRequest();
  /// Discards the partial body and the bytes received.
  void discard();

  /// The number of bytes of the body so far, including resumed ones.
  [[nodiscard]] std::int64_t length() const noexcept;
  /// How many of these were kept before resume().
  [[nodiscard]] std::int64_t resumed() const noexcept { return resumed_; }
  /// True if a later attempt can resume more than this one found.
  [[nodiscard]] bool hasGrown() const;
  /// The last disk error; nothing if there was none, for example because memory ran out.
  [[nodiscard]] const std::optional<Error>& error() const noexcept { return error_; }

 private:
  bool moveToDisk();
  /// Stores the error on failure. Returns true on success.
  bool storeError(Status&& status);

  const URL url_;
  SpoolDirectory& spool_;
  BodyBuffers& buffers_;
  const std::int64_t largestInMemory_;
  PartialRecord coming_;
  const ResponseCheck* response_ = nullptr;  // of the body being received
  std::string memory_;
  std::unique_ptr<PartialBody> partial_;  // of an earlier attempt, or the body if it is large
  bool isOnDisk_ = false;
  std::int64_t found_ = 0;
  std::int64_t resumed_ = 0;
  std::optional<Error> error_;
};

}  // namespace kiv
