// The rules of RFC 9110 and RFC 9112 for a complete response. libcurl itself accepts contradicting
// lengths, truncated bodies without a length, and ranges of other versions.

#include "KivPlatform/KivRESTService/http/ResponseCheck.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "KivPlatform/Foundation/text/ASCII.h"
#include "KivPlatform/KivRESTService/http/HeaderFields.h"

namespace kiv {

namespace {

using Code = KivRESTServiceErrorCode;

constexpr bool isBlank(char character) noexcept {
  return character == ' ' || character == '\t';
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back()))
    text.remove_suffix(1);
  return text;
}

std::string_view withoutLineEnd(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
    line.remove_suffix(1);
  return line;
}

/// A Content-Length: digits only, within the range of the type.
std::optional<std::int64_t> lengthFrom(std::string_view text) {
  std::int64_t length = 0;
  if (text.empty() || !std::all_of(text.begin(), text.end(), ascii::isDigit)) return std::nullopt;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  if (error != std::errc()) return std::nullopt;
  return length;
}

/// "bytes 5-9/10": the offsets of the first and last byte of the range, and the length of the file.
struct ContentRange {
  std::int64_t first;
  std::int64_t last;
  std::int64_t length;
};

std::optional<ContentRange> contentRangeFrom(std::string_view text) {
  constexpr std::string_view unit = "bytes ";
  if (ascii::lowercased(text.substr(0, unit.size())) != unit) return std::nullopt;
  text.remove_prefix(unit.size());
  const auto dash = text.find('-');
  const auto slash = text.find('/');
  if (dash == text.npos || slash == text.npos || dash > slash) return std::nullopt;
  const auto first = lengthFrom(text.substr(0, dash));
  const auto last = lengthFrom(text.substr(dash + 1, slash - dash - 1));
  const auto length = lengthFrom(text.substr(slash + 1));
  if (!first || !last || !length) return std::nullopt;
  return ContentRange{*first, *last, *length};
}

void append(std::optional<std::string>& values, std::string_view value) {
  if (values) {
    values->append(",").append(value);
  } else {
    values = value;
  }
}

}  // namespace

bool ResponseCheck::refuse(Code code, std::string what) {
  if (!problem_) problem_ = Problem{code, std::move(what)};
  return false;
}

bool ResponseCheck::endsWithConnection() const noexcept {
  return isFile() && !expectedBytes() && !transferEncoding_ && !isHTTP2_;
}

std::optional<std::int64_t> ResponseCheck::fileLength() const noexcept {
  if (isContinuation_ && range_->length) return range_->length;
  if (isContinuation_) return contentRangeFrom(contentRange_.value_or(""))->length;
  return length_;
}

BodyVersion ResponseCheck::version() const {
  BodyVersion version;
  if (entityTag_ && isStrongEntityTag(*entityTag_)) version.entityTag = *entityTag_;
  if (!lastModified_ || !hasCharactersOfDate(*lastModified_)) return version;
  // A file changed in the second of the response may change again within that second (RFC 9110,
  // 8.8.2.2).
  const auto changed = secondsFromHTTPDate(*lastModified_);
  const auto answered = date_ ? secondsFromHTTPDate(*date_) : secondsNow();
  if (changed && answered && *changed < *answered) version.lastModified = *lastModified_;
  return version;
}

std::string ResponseCheck::entityTag() const {
  const bool isUsable =
      entityTag_ && entityTag_->size() <= largestEntityTag && isEntityTag(*entityTag_);
  return isUsable ? *entityTag_ : std::string();
}

std::string ResponseCheck::lastModified() const {
  const bool isDate = lastModified_ && secondsFromHTTPDate(*lastModified_);
  return isDate ? *lastModified_ : std::string();
}

std::optional<std::chrono::seconds> ResponseCheck::retryAfter() const {
  if (!retryAfter_) return std::nullopt;
  return waitFromRetryAfter(*retryAfter_, date_ ? secondsFromHTTPDate(*date_) : std::nullopt);
}

bool ResponseCheck::addHeaderLine(std::string_view line) {
  if (problem_) return false;
  headerBytes_ += line.size();
  if (headerBytes_ > largestHeaders) {
    return refuse(Code::malformedResponse, "the headers of the server's response are too large");
  }
  line = withoutLineEnd(line);
  switch (stage_) {
    case Stage::statusLine:
      return addStatusLine(line);
    case Stage::headers:
      return line.empty() ? endHeaders() : addHeader(line);
    case Stage::body:
      return true;  // trailers do not matter here
  }
  return true;
}

bool ResponseCheck::addStatusLine(std::string_view line) {
  // "HTTP/1.1 200 OK", or "HTTP/2 200" as the transport writes it.
  const bool isHTTP2 = line.starts_with("HTTP/2 ") && protocols_ == Protocols::http1AndHTTP2;
  const bool isHTTP1 = line.starts_with("HTTP/1.") && line.size() > 8 && ascii::isDigit(line[7]);
  const std::string_view rest = isHTTP2 ? line.substr(6) : isHTTP1 ? line.substr(8) : "";
  const bool isProper = rest.size() >= 4 && rest[0] == ' ' && rest[1] >= '1' && rest[1] <= '5' &&
                        ascii::isDigit(rest[2]) && ascii::isDigit(rest[3]) &&
                        (rest.size() == 4 || rest[4] == ' ');
  if (!isProper) {
    return refuse(Code::malformedResponse, "the server's response does not begin as HTTP does");
  }
  forgetHeaders();
  isHTTP2_ = isHTTP2;
  isHTTP10_ = isHTTP1 && line[7] == '0';
  std::from_chars(rest.data() + 1, rest.data() + 4, status_);
  stage_ = Stage::headers;
  return true;
}

void ResponseCheck::forgetHeaders() {
  contentLengthText_.reset();
  transferEncoding_.reset();
  contentEncoding_.reset();
  location_.reset();
  contentRange_.reset();
  entityTag_.reset();
  lastModified_.reset();
  date_.reset();
  retryAfter_.reset();
  lastHeader_ = nullptr;
}

bool ResponseCheck::addHeader(std::string_view line) {
  if (isBlank(line.front())) {
    if (lastHeader_) lastHeader_->append(" ").append(trimmed(line));
    return true;
  }
  lastHeader_ = nullptr;
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return true;
  return addNamedHeader(ascii::lowercased(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
}

std::optional<std::string>* ResponseCheck::keptHeader(std::string_view name) noexcept {
  if (name == "content-length") return &contentLengthText_;
  if (name == "transfer-encoding") return &transferEncoding_;
  if (name == "content-encoding") return &contentEncoding_;
  if (name == "location") return &location_;
  if (name == "content-range") return &contentRange_;
  if (name == "etag") return &entityTag_;
  if (name == "last-modified") return &lastModified_;
  if (name == "date") return &date_;
  if (name == "retry-after") return &retryAfter_;
  return nullptr;
}

bool ResponseCheck::addNamedHeader(std::string_view name, std::string_view value) {
  const auto properName = trimmed(name);
  auto* const header = keptHeader(properName);
  if (!header) return true;
  if (properName.size() != name.size()) {
    return refuse(Code::malformedResponse, "the server's response has a malformed header");
  }
  if (header == &location_ && location_ && *location_ != value) {
    return refuse(Code::malformedResponse, "the server redirects to two places at once");
  }
  if (header == &location_) {
    location_ = value;
  } else {
    append(*header, value);
  }
  lastHeader_ = &**header;
  return true;
}

bool ResponseCheck::endHeaders() {
  // 101 switches the connection to another protocol: no further response follows.
  const bool isInterim = status_ < 200 && status_ != 101;
  if (isInterim) {
    stage_ = Stage::statusLine;
    return true;
  }
  stage_ = Stage::body;
  return readContentLength() && checkTransferCoding() && checkRange() && (!isFile() || checkFile());
}

/// A server may always send the whole file, but a range only as requested.
bool ResponseCheck::checkRange() {
  if (!range_ || (status_ != 206 && status_ != 416)) return true;
  isContinuation_ = status_ == 206 && fitsRange();
  deniesRange_ = !isContinuation_;
  if (isContinuation_) return true;
  return refuse(Code::malformedResponse, "the server does not give the rest of the file");
}

bool ResponseCheck::fitsRange() const {
  const auto range = contentRangeFrom(contentRange_.value_or(""));
  if (!range || range->first != range_->first || range->last != range->length - 1) return false;
  if (range_->length && *range_->length != range->length) return false;
  if (length_ && *length_ != range->length - range->first) return false;
  // If the server repeats a validator, it must be the same as before.
  const BodyVersion& here = range_->version;
  return (!entityTag_ || here.entityTag.empty() || *entityTag_ == here.entityTag) &&
         (!lastModified_ || here.lastModified.empty() || *lastModified_ == here.lastModified);
}

bool ResponseCheck::readContentLength() {
  std::string_view rest = contentLengthText_ ? *contentLengthText_ : std::string_view();
  bool isLast = !contentLengthText_;
  while (!isLast) {
    const auto comma = rest.find(',');
    const auto length = lengthFrom(trimmed(rest.substr(0, comma)));
    if (!length) {
      return refuse(Code::malformedResponse, "the server's response has a malformed length");
    }
    if (length_ && length_ != length) {
      return refuse(Code::malformedResponse, "the server's response has two different lengths");
    }
    length_ = length;
    isLast = comma == std::string_view::npos;
    if (!isLast) rest.remove_prefix(comma + 1);
  }
  return true;
}

bool ResponseCheck::checkTransferCoding() {
  if (!transferEncoding_) return true;
  // HTTP/1.0 has no transfer codings: a header that names one was forwarded by a server that did
  // not apply it.
  if (ascii::lowercased(*transferEncoding_) == "chunked" && !isHTTP10_) return true;
  return refuse(Code::malformedResponse,
                "the server's response has a transfer coding that was not asked for");
}

bool ResponseCheck::checkFile() {
  if (contentEncoding_ && !contentEncoding_->empty() &&
      ascii::lowercased(*contentEncoding_) != "identity") {
    return refuse(Code::malformedResponse,
                  "the server's response has a content coding that was not asked for");
  }
  if (fileLength() && *fileLength() > largestBody_) return refuse(Code::bodyTooLarge, {});
  // libcurl reports success for a stream that the server has reset with NO_ERROR.
  if (isHTTP2_ && !length_) {
    return refuse(Code::malformedResponse,
                  "the server's response over HTTP/2 does not tell its length");
  }
  return checkEnd();
}

/// If a body ends with the connection, its end cannot be told from a broken connection. HTTP/1.0
/// has no other way to send a body of unknown length; HTTP/1.1 has the chunked coding.
bool ResponseCheck::checkEnd() {
  if (!endsWithConnection() || openEnds_ == OpenEnds::all) return true;
  if (openEnds_ == OpenEnds::none) {
    return refuse(
        Code::malformedResponse,
        "the server's response does not tell its length, and over https its end cannot be "
        "told from a cut");
  }
  if (isHTTP10_) return true;
  return refuse(Code::malformedResponse,
                "the server's response does not tell its length, and the setting "
                "takesBodiesWithoutLength is off");
}

bool ResponseCheck::addBodyBytes(std::size_t count) {
  if (problem_) return false;
  bodyBytes_ += static_cast<std::int64_t>(count);
  if (!isFile()) return bodyBytes_ <= largestUnwantedBody;
  if (bodyBytes_ > largestBody_) return refuse(Code::bodyTooLarge, {});
  if (isContinuation_ && bodyBytes_ > *expectedBytes()) {
    return refuse(Code::malformedResponse, "the server sends more than the rest of the file");
  }
  return true;
}

/// The length that the body of this response must have.
std::optional<std::int64_t> ResponseCheck::expectedBytes() const noexcept {
  if (isContinuation_) return *fileLength() - range_->first;
  return length_;
}

void ResponseCheck::end() {
  if (problem_) return;
  if (!hasHeaders()) {
    refuse(Code::connectionLost, "the connection ended before the headers of the response did");
  } else if (isFile() && expectedBytes() && *expectedBytes() != bodyBytes_) {
    refuse(Code::connectionLost, "the server's response has not the length that it tells");
  }
}

}  // namespace kiv
