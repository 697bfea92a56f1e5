#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

/// What a response tells of the version of the file that it gives. With it a later request can ask
/// for the rest of that very version.
struct BodyVersion {
  std::string entityTag;     ///< A strong one, quotes included, or empty.
  std::string lastModified;  ///< The date as it came, where it tells versions apart; else empty.

  /// What to put into "If-Range"; empty where nothing tells versions apart.
  [[nodiscard]] const std::string& validator() const noexcept {
    return entityTag.empty() ? lastModified : entityTag;
  }
  friend bool operator==(const BodyVersion&, const BodyVersion&) = default;
};

/// The end of a file that was asked for, its beginning being here already.
struct RangeAsked {
  std::int64_t first = 0;              ///< The place of the first byte wanted.
  std::optional<std::int64_t> length;  ///< Of the whole file, where it is known.
  BodyVersion version;                 ///< Of what is here.
};

/// Looks at one HTTP response while it comes in, and refuses it where it is malformed, too large,
/// or not whole. The transport reports success for several of these.
///
/// Fed with the header lines, interim responses and trailers included, with the sizes of the
/// pieces of the body, and with the end.
class KIV_EXPORT ResponseCheck {
 public:
  struct Problem {
    KivRESTServiceErrorCode code;
    std::string what;  ///< A clause that fits after a colon.
  };

  /// Bytes that status lines and headers, those of interim responses included, may have.
  static constexpr std::size_t largestHeaders = 256 * 1024;
  /// Bytes that are read of a body nobody wants, so that the connection can serve again.
  static constexpr std::int64_t largestUnwantedBody = 64 * 1024;

  enum class Protocols { http1, http1AndHTTP2 };
  /// Over which protocols a body is taken of which only the end of the connection marks the end.
  enum class OpenEnds { none, http10, all };

  /// `largestBody` is the number of bytes that a file may have.
  explicit ResponseCheck(std::int64_t largestBody, std::optional<RangeAsked> range = std::nullopt,
                         Protocols protocols = Protocols::http1,
                         OpenEnds openEnds = OpenEnds::http10)
      : largestBody_(largestBody),
        range_(std::move(range)),
        protocols_(protocols),
        openEnds_(openEnds) {}
  ResponseCheck(const ResponseCheck&) = delete;
  ResponseCheck& operator=(const ResponseCheck&) = delete;

  /// Takes the next line, with its line end; false where the response is refused.
  bool addHeaderLine(std::string_view line);
  /// Takes note of bytes of the body; false where no more of them should be read.
  bool addBodyBytes(std::size_t count);
  /// The transport has found the end of the response, and nothing wrong with it.
  void end();

  /// Why the response is refused, if it is.
  [[nodiscard]] const std::optional<Problem>& problem() const noexcept { return problem_; }
  /// True when the final status and its headers are known.
  [[nodiscard]] bool hasHeaders() const noexcept { return stage_ == Stage::body; }
  /// True where the response is a file, or the rest of one as it was asked for: its body is wanted.
  [[nodiscard]] bool isFile() const noexcept {
    return hasHeaders() && (status_ == 200 || isContinuation_);
  }
  /// True where the response is the rest of the file, as it was asked for.
  [[nodiscard]] bool isContinuation() const noexcept { return hasHeaders() && isContinuation_; }
  /// True where the server gives another part than was asked for, or none: what is here of the file
  /// is of no use any more. Such a response is refused.
  [[nodiscard]] bool deniesRange() const noexcept { return deniesRange_; }
  [[nodiscard]] int status() const noexcept { return status_; }
  /// Where a redirect leads, as the server wrote it; empty where it does not say.
  [[nodiscard]] std::string_view location() const noexcept {
    return location_ ? std::string_view(*location_) : std::string_view();
  }
  /// The length of the whole file, as the response tells it.
  [[nodiscard]] std::optional<std::int64_t> fileLength() const noexcept;
  /// The version of the file.
  [[nodiscard]] BodyVersion version() const;
  /// How long the server wants to be left alone.
  [[nodiscard]] std::optional<std::chrono::seconds> retryAfter() const;
  /// True where only the end of the connection marks the end of the body.
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
  const std::optional<RangeAsked> range_;
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
  // The values as they came, those of repeated headers joined by commas.
  std::optional<std::string> contentLengthText_;
  std::optional<std::string> transferEncoding_;
  std::optional<std::string> contentEncoding_;
  std::optional<std::string> location_;
  std::optional<std::string> contentRange_;
  std::optional<std::string> entityTag_;
  std::optional<std::string> lastModified_;
  std::optional<std::string> date_;
  std::optional<std::string> retryAfter_;
  std::string* lastHeader_ = nullptr;  // which a folded line continues
  std::optional<std::int64_t> length_;
};

}  // namespace kiv
