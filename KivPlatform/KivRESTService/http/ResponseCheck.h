#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

/// The validators of a response, with which a later request can ask for the rest of the same
/// version.
struct BodyVersion {
  std::string entityTag;     ///< Strong, quotes included; or empty.
  std::string lastModified;  ///< As received, if it is a strong validator; or empty.

  /// The value of If-Range; empty if there is no strong validator.
  [[nodiscard]] const std::string& validator() const noexcept {
    return entityTag.empty() ? lastModified : entityTag;
  }
  friend bool operator==(const BodyVersion&, const BodyVersion&) = default;
};

/// A request for the rest of a file whose beginning is kept in a partial body.
struct RequestedRange {
  std::int64_t first = 0;              ///< Offset of the first byte wanted.
  std::optional<std::int64_t> length;  ///< Of the whole file, if known.
  BodyVersion version;                 ///< Of the partial body.
};

/// Checks one HTTP response while it arrives, and rejects it if it is malformed, too large or
/// incomplete. libcurl reports success for several of these.
///
/// It receives the header lines, including those of interim responses and trailers, the sizes of
/// the pieces of the body, and the end.
class ResponseCheck {
 public:
  struct Problem {
    KivRESTServiceErrorCode code;
    std::string what;  ///< A clause that fits after a colon.
  };

  /// The limit on the bytes of status lines and headers, those of interim responses included.
  static constexpr std::size_t largestHeaders = 256 * 1024;
  /// The limit on the bytes that are read of an unwanted body so that the connection can be reused.
  static constexpr std::int64_t largestUnwantedBody = 64 * 1024;
  /// The limit on the bytes of an entity tag that is sent back.
  static constexpr std::size_t largestEntityTag = 1024;

  enum class Protocols { http1, http1AndHTTP2 };
  /// The protocol versions with which a body may end with the connection.
  enum class OpenEnds { none, http10, all };

  /// `largestBody` is the limit on the bytes of a file.
  explicit ResponseCheck(std::int64_t largestBody,
                         std::optional<RequestedRange> range = std::nullopt,
                         Protocols protocols = Protocols::http1,
                         OpenEnds openEnds = OpenEnds::http10)
      : largestBody_(largestBody),
        range_(std::move(range)),
        protocols_(protocols),
        openEnds_(openEnds) {}
  ResponseCheck(const ResponseCheck&) = delete;
  ResponseCheck& operator=(const ResponseCheck&) = delete;

  /// Takes the next header line, with its line end; false if the response is rejected.
  bool addHeaderLine(std::string_view line);
  /// Counts bytes of the body; false if no more should be read.
  bool addBodyBytes(std::size_t count);
  /// Called at the end of the response, if libcurl has found no error.
  void end();

  /// Why the response is rejected, if it is.
  [[nodiscard]] const std::optional<Problem>& problem() const noexcept { return problem_; }
  /// True once the final status and headers are known.
  [[nodiscard]] bool hasHeaders() const noexcept { return stage_ == Stage::body; }
  /// True if the body is wanted: the whole file, or the requested range.
  [[nodiscard]] bool isFile() const noexcept {
    return hasHeaders() && (status_ == 200 || isContinuation_);
  }
  /// True if the response is the requested range.
  [[nodiscard]] bool isContinuation() const noexcept { return hasHeaders() && isContinuation_; }
  /// True if the server sent a range other than the requested one, or none: the partial body is
  /// then useless. Such a response is rejected.
  [[nodiscard]] bool deniesRange() const noexcept { return deniesRange_; }
  [[nodiscard]] int status() const noexcept { return status_; }
  /// True if there is no status line yet, or if it is one of HTTP/2.
  [[nodiscard]] bool mayBeHTTP2() const noexcept { return status_ == 0 || isHTTP2_; }
  /// The Location of a redirect, unparsed; empty if there is none.
  [[nodiscard]] std::string_view location() const noexcept {
    return location_ ? std::string_view(*location_) : std::string_view();
  }
  /// The length of the whole file, in bytes, if the response tells it.
  [[nodiscard]] std::optional<std::int64_t> fileLength() const noexcept;
  /// The version of the file: its strong validators.
  [[nodiscard]] BodyVersion version() const;
  /// The value of ETag, weak or strong. Empty if there is none, if it is not an entity tag, or if
  /// it is so long that a server may refuse a request with it.
  [[nodiscard]] std::string entityTag() const;
  /// The value of Last-Modified; empty if there is none or if it is not an HTTP-date.
  [[nodiscard]] std::string lastModified() const;
  /// The wait that Retry-After asks for; nothing if there is none or it is not valid.
  [[nodiscard]] std::optional<std::chrono::seconds> retryAfter() const;
  /// True if the body ends with the connection.
  [[nodiscard]] bool endsWithConnection() const noexcept;

 private:
  enum class Stage { statusLine, headers, body };

  bool refuse(KivRESTServiceErrorCode code, std::string what);
  bool addStatusLine(std::string_view line);
  bool addHeader(std::string_view line);
  bool addNamedHeader(std::string_view name, std::string_view value);
  bool endHeaders();
  bool readContentLength();
  bool checkTransferCoding();
  bool checkFile();
  bool checkEnd();
  bool checkRange();
  [[nodiscard]] bool fitsRange() const;
  [[nodiscard]] std::optional<std::int64_t> expectedBytes() const noexcept;
  void forgetHeaders();
  std::optional<std::string>* keptHeader(std::string_view name) noexcept;

  const std::int64_t largestBody_;
  const std::optional<RequestedRange> range_;
  const Protocols protocols_;
  const OpenEnds openEnds_;
  Stage stage_ = Stage::statusLine;
  std::optional<Problem> problem_;
  std::size_t headerBytes_ = 0;
  std::int64_t bodyBytes_ = 0;

  int status_ = 0;
  bool isHTTP10_ = false;
  bool isHTTP2_ = false;
  bool isContinuation_ = false;
  bool deniesRange_ = false;
  // Values as received; those of repeated headers are joined by commas.
  std::optional<std::string> contentLengthText_;
  std::optional<std::string> transferEncoding_;
  std::optional<std::string> contentEncoding_;
  std::optional<std::string> location_;
  std::optional<std::string> contentRange_;
  std::optional<std::string> entityTag_;
  std::optional<std::string> lastModified_;
  std::optional<std::string> date_;
  std::optional<std::string> retryAfter_;
  std::string* lastHeader_ = nullptr;  // continued by a folded line
  std::optional<std::int64_t> length_;
};

}  // namespace kiv
