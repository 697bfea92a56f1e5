#include "Platform/KivRESTService/ResponseCheck.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace kiv {

namespace {

using Code = KivRESTServiceErrorCode;

constexpr bool isBlank(char character) noexcept {
  return character == ' ' || character == '\t';
}

constexpr bool isDigit(char character) noexcept {
  return character >= '0' && character <= '9';
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

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& character : lower) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character + 32);
  }
  return lower;
}

/// A length as the header may have it: digits alone, and no more than fit.
std::optional<std::int64_t> lengthFrom(std::string_view text) {
  std::int64_t length = 0;
  if (text.empty() || !std::all_of(text.begin(), text.end(), isDigit)) return std::nullopt;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  if (error != std::errc()) return std::nullopt;
  return length;
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
  return isFile() && !length_ && !transferEncoding_;
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
      return true;  // trailers say nothing that matters here
  }
  return true;
}

bool ResponseCheck::addStatusLine(std::string_view line) {
  // "HTTP/1.1 200 OK": the version's last digit stands at 7, the status from 9 to 11.
  const bool isProper = line.starts_with("HTTP/1.") && line.size() >= 12 && isDigit(line[7]) &&
                        line[8] == ' ' && line[9] >= '1' && line[9] <= '5' && isDigit(line[10]) &&
                        isDigit(line[11]) && (line.size() == 12 || line[12] == ' ');
  if (!isProper) {
    return refuse(Code::malformedResponse, "the server's response does not begin as HTTP does");
  }
  forgetHeaders();
  isHTTP10_ = line[7] == '0';
  std::from_chars(line.data() + 9, line.data() + 12, status_);
  stage_ = Stage::headers;
  return true;
}

void ResponseCheck::forgetHeaders() {
  contentLengthText_.reset();
  transferEncoding_.reset();
  contentEncoding_.reset();
  location_.reset();
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
  return addNamedHeader(lowerCase(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
}

bool ResponseCheck::addNamedHeader(std::string_view name, std::string_view value) {
  std::optional<std::string>* header = nullptr;
  const auto properName = trimmed(name);
  if (properName == "content-length") header = &contentLengthText_;
  if (properName == "transfer-encoding") header = &transferEncoding_;
  if (properName == "content-encoding") header = &contentEncoding_;
  if (properName == "location") header = &location_;
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
  // 101 would hand the connection to another protocol: there is no further response to come.
  const bool isInterim = status_ < 200 && status_ != 101;
  if (isInterim) {
    stage_ = Stage::statusLine;
    return true;
  }
  stage_ = Stage::body;
  return readContentLength() && checkTransferCoding() && (!isFile() || checkFile());
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
  // HTTP/1.0 knows no transfer codings: who sends one there has not framed the body itself.
  if (lowerCase(*transferEncoding_) == "chunked" && !isHTTP10_) return true;
  return refuse(Code::malformedResponse,
                "the server's response has a transfer coding that was not asked for");
}

bool ResponseCheck::checkFile() {
  if (contentEncoding_ && !contentEncoding_->empty() &&
      lowerCase(*contentEncoding_) != "identity") {
    return refuse(Code::malformedResponse,
                  "the server's response has a content coding that was not asked for");
  }
  if (length_ && *length_ > largestBody_) return refuse(Code::bodyTooLarge, {});
  // A cut connection looks exactly like the end of such a body. HTTP/1.0 had no other way to send a
  // body of unknown length; HTTP/1.1 has the chunked coding for it.
  if (endsWithConnection() && !isHTTP10_) {
    return refuse(Code::malformedResponse, "the server's response does not tell its length");
  }
  return true;
}

bool ResponseCheck::addBodyBytes(std::size_t count) {
  if (problem_) return false;
  bodyBytes_ += static_cast<std::int64_t>(count);
  if (!isFile()) return bodyBytes_ <= largestUnwantedBody;
  if (bodyBytes_ > largestBody_) return refuse(Code::bodyTooLarge, {});
  return true;
}

void ResponseCheck::end() {
  if (problem_) return;
  if (!hasHeaders()) {
    refuse(Code::connectionLost, "the connection ended before the headers of the response did");
  } else if (isFile() && length_ && *length_ != bodyBytes_) {
    refuse(Code::connectionLost, "the server's response has not the length that it tells");
  }
}

}  // namespace kiv
