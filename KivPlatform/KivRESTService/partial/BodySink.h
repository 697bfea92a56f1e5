#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/PartialRecord.h"

namespace kiv {

class BodyBuffers;
class PartialBody;
class SpoolDirectory;

/// Where the body of one try goes: into memory while it is small, otherwise into the spool
/// directory, after what an earlier try left there.
///
/// What a failed try leaves there stays for the next one; begin() throws it away.
class BodySink {
 public:
  /// `spool` and `buffers` must outlive the sink. Looks for what is kept of the file.
  BodySink(URL url, SpoolDirectory& spool, BodyBuffers& buffers, std::int64_t largestInMemory);
  ~BodySink();
  BodySink(const BodySink&) = delete;
  BodySink& operator=(const BodySink&) = delete;

  /// What to ask the server for instead of the whole file; nothing where nothing is kept, or
  /// where the last request for the rest failed.
  [[nodiscard]] std::optional<RangeAsked> range() const;
  /// True where what is kept came from that URL.
  [[nodiscard]] bool isFrom(const URL& url) const;

  /// A whole body comes from that URL, as the response says, which must stay until the body is
  /// finished or discarded.
  bool begin(const URL& from, const ResponseCheck& response);
  /// The rest of the body comes, as range() asked.
  bool resume();
  /// The bytes may wait in memory until flush().
  bool append(std::string_view bytes);
  bool flush();
  /// No more comes now: moves to the disk what is in memory, where a later try can continue it.
  void keep();
  /// The body is whole. Nothing, with an error, where it cannot be handed on.
  std::optional<Data> finish();
  /// The response had nothing of the file: the next try asks for the whole where this one asked for
  /// the rest, and for the rest where this one asked for the whole.
  void askOtherwise();
  /// Nothing that is kept of the file is of use.
  void discard();

  /// Bytes that are here: kept and come.
  [[nodiscard]] std::int64_t length() const noexcept;
  /// Of these, those with which resume() began.
  [[nodiscard]] std::int64_t resumed() const noexcept { return resumed_; }
  /// True where a later try can go on with more than this one found.
  [[nodiscard]] bool hasGrown() const;
  /// What failed on the disk; nothing where it was memory.
  [[nodiscard]] const std::optional<Error>& error() const noexcept { return error_; }

 private:
  bool moveToDisk();

  const URL url_;
  SpoolDirectory& spool_;
  BodyBuffers& buffers_;
  const std::int64_t largestInMemory_;
  PartialRecord coming_;
  const ResponseCheck* response_ = nullptr;  // with the version of what comes
  std::string memory_;
  std::unique_ptr<PartialBody> partial_;  // what is kept, or what comes where it is large
  bool isOnDisk_ = false;
  std::int64_t found_ = 0;
  std::int64_t resumed_ = 0;
  std::optional<Error> error_;
};

}  // namespace kiv
