#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/PartialRecord.h"

namespace kiv {

class BodyBuffers;
class PartialBody;
class SpoolDirectory;

/// Receives the body of one attempt: in memory while it is small, otherwise in the spool directory,
/// after the part that an earlier attempt left there.
///
/// A failed attempt leaves its part for the next one; begin() discards it. The operations are
/// called from callbacks of the transfer, which can only be told to go on or to stop: they answer
/// whether they succeeded, and error() tells why not.
class BodySink {
 public:
  /// `spool` and `buffers` must outlive the sink. Looks for a partial body of the URL.
  BodySink(URL url, SpoolDirectory& spool, BodyBuffers& buffers, std::int64_t largestInMemory);
  ~BodySink();
  BodySink(const BodySink&) = delete;
  BodySink& operator=(const BodySink&) = delete;

  /// The range to request; nothing for the whole file: if nothing is kept, or if the last range
  /// request failed.
  [[nodiscard]] std::optional<RangeAsked> range() const;
  /// True if the kept part came from that URL.
  [[nodiscard]] bool isFrom(const URL& url) const;

  /// Begins a whole body from that URL. The response must stay until the body is finished or
  /// discarded.
  bool begin(const URL& from, const ResponseCheck& response);
  /// Continues the kept part with the range that range() asked for.
  bool resume();
  /// The bytes may be buffered until flush().
  bool append(std::string_view bytes);
  bool flush();
  /// Ends an incomplete body: writes what is in memory to the disk if a later attempt can continue
  /// it.
  void keep();
  /// Ends a complete body and returns its data; nothing, with an error, if that fails.
  std::optional<Data> finish();
  /// Called when the response had nothing of the file. After a range request the next attempt asks
  /// for the whole file, and the other way round.
  void askOtherwise();
  /// Discards what is kept of the file.
  void discard();

  /// The bytes kept and received.
  [[nodiscard]] std::int64_t length() const noexcept;
  /// Of these, the bytes that were kept before resume().
  [[nodiscard]] std::int64_t resumed() const noexcept { return resumed_; }
  /// True if more is kept for a later attempt than this one found.
  [[nodiscard]] bool hasGrown() const;
  /// The last error of the disk; nothing if memory ran out.
  [[nodiscard]] const std::optional<Error>& error() const noexcept { return error_; }

 private:
  bool moveToDisk();
  /// Keeps the error, if it is one. True after success.
  bool remember(Status&& status);

  const URL url_;
  SpoolDirectory& spool_;
  BodyBuffers& buffers_;
  const std::int64_t largestInMemory_;
  PartialRecord coming_;
  const ResponseCheck* response_ = nullptr;  // of the body being received
  std::string memory_;
  std::unique_ptr<PartialBody> partial_;  // the kept part, or a large body
  bool isOnDisk_ = false;
  std::int64_t found_ = 0;
  std::int64_t resumed_ = 0;
  std::optional<Error> error_;
};

}  // namespace kiv
