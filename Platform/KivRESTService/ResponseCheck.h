#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"
#include "Platform/KivRESTService/KivRESTService.h"

namespace kiv {

/// Looks at one HTTP/1 response while it comes in, and refuses it where it is malformed, too large,
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

  /// `largestBody` is the number of bytes that a file may have.
  explicit ResponseCheck(std::int64_t largestBody) : largestBody_(largestBody) {}
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
  /// True where the response is a file: its body is wanted.
  [[nodiscard]] bool isFile() const noexcept { return hasHeaders() && status_ == 200; }
  [[nodiscard]] int status() const noexcept { return status_; }
  /// Where a redirect leads, as the server wrote it; empty where it does not say.
  [[nodiscard]] std::string_view location() const noexcept {
    return location_ ? std::string_view(*location_) : std::string_view();
  }
  /// The length that the response told for its body.
  [[nodiscard]] std::optional<std::int64_t> contentLength() const noexcept { return length_; }
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
  void forgetHeaders();

  const std::int64_t largestBody_;
  Stage stage_ = Stage::statusLine;
  std::optional<Problem> problem_;
  std::size_t headerBytes_ = 0;
  std::int64_t bodyBytes_ = 0;

  int status_ = 0;
  bool isHTTP10_ = false;
  // The values as they came, those of repeated headers joined by commas.
  std::optional<std::string> contentLengthText_;
  std::optional<std::string> transferEncoding_;
  std::optional<std::string> contentEncoding_;
  std::optional<std::string> location_;
  std::string* lastHeader_ = nullptr;  // which a folded line continues
  std::optional<std::int64_t> length_;
};

}  // namespace kiv
