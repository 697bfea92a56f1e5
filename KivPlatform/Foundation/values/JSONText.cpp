// The list is split before it is parsed. The scan does not validate: the parser checks each element
// later. It only has to find where an element ends, and must not be misled by brackets in strings.
//
// std::from_chars for double is missing in some standard libraries. strtod is the substitute, but
// its decimal point depends on the locale, which the host application may have set.

#include "KivPlatform/Foundation/values/JSONText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <locale.h>
#include <string>
#include <version>

#if defined(__APPLE__)
#include <xlocale.h>
#endif

#include <simdjson.h>

namespace kiv {

namespace {

/// The position after the string that begins at `quote`, or the end of the text.
std::size_t endOfString(std::string_view text, std::size_t quote) {
  for (std::size_t at = quote + 1; at < text.size(); ++at) {
    if (text[at] == '"') return at + 1;
    if (text[at] == '\\') ++at;
  }
  return text.size();
}

/// Sets this thread's locale to "C", whose decimal point is ".", and restores it on destruction.
class PointAsDecimal {
 public:
  PointAsDecimal() noexcept : before_(uselocale(plain())) {}
  ~PointAsDecimal() { uselocale(before_); }
  PointAsDecimal(const PointAsDecimal&) = delete;
  PointAsDecimal& operator=(const PointAsDecimal&) = delete;

 private:
  static locale_t plain() noexcept {
    static const locale_t shared = newlocale(LC_ALL_MASK, "C", nullptr);
    return shared;
  }

  locale_t before_;
};

}  // namespace

JSONElements::JSONElements(std::string_view text) : text_(text) {
  skipWhitespace();
  isCut_ = skip('[');
}

std::string_view JSONElements::next() {
  if (!isCut_) return {};
  isCut_ = false;
  skipWhitespace();
  const bool isFirst = isFirst_;
  isFirst_ = false;
  if (skip(']')) {
    skipWhitespace();
    isAtEnd_ = position_ == text_.size();
    return {};
  }
  if (!isFirst && !skip(',')) return {};
  skipWhitespace();
  const std::size_t start = position_;
  const bool isContainer = start < text_.size() && (text_[start] == '{' || text_[start] == '[');
  if (!isContainer) return {};
  position_ = endOfElement();
  isCut_ = true;
  return text_.substr(start, position_ - start);
}

/// The position after the bracket that closes the element at the current position, or the end of
/// the text.
std::size_t JSONElements::endOfElement() const {
  std::size_t depth = 0;
  for (std::size_t at = position_; at < text_.size();) {
    const char character = text_[at];
    if (character == '"') {
      at = endOfString(text_, at);
      continue;
    }
    ++at;
    if (character == '{' || character == '[') ++depth;
    if ((character == '}' || character == ']') && --depth == 0) return at;
  }
  return text_.size();
}

void JSONElements::skipWhitespace() {
  const std::size_t next = text_.find_first_not_of(" \t\r\n", position_);
  position_ = next == text_.npos ? text_.size() : next;
}

bool JSONElements::skip(char expected) {
  if (position_ == text_.size() || text_[position_] != expected) return false;
  ++position_;
  return true;
}

std::errc readDecimal(std::string_view text, double& number) {
#if defined(__cpp_lib_to_chars)
  return std::from_chars(text.data(), text.data() + text.size(), number).ec;
#else
  return readDecimalByC(text, number);
#endif
}

std::errc readDecimalByC(std::string_view text, double& number) {
  // Passes only the characters of a JSON number: strtod accepts more ("inf", hexadecimal), and
  // needs a terminating NUL.
  const std::string digits(text.substr(0, text.find_first_not_of("+-.0123456789Ee")));
  const PointAsDecimal point;
  const double read = std::strtod(digits.c_str(), nullptr);
  if (std::isinf(read)) return std::errc::result_out_of_range;
  number = read;
  return {};
}

const char* firstInvalidUTF8(std::string_view text) {
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size() - 1) + 1;
    if (!simdjson::validate_utf8(text.data() + start, end - start)) {
      std::size_t good = start;
      for (std::size_t at = start + 1; at <= end && at - good <= 4; ++at) {
        if (simdjson::validate_utf8(text.data() + good, at - good)) good = at;
      }
      return text.data() + good;
    }
    start = end;
  }
  return text.data() + text.size();
}

const char* firstControlCharacterInString(std::string_view text) {
  bool inString = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (inString && static_cast<unsigned char>(text[at]) < 0x20) return text.data() + at;
    if (inString && text[at] == '\\') {
      ++at;
    } else if (text[at] == '"') {
      inString = !inString;
    }
  }
  return text.data() + text.size();
}

}  // namespace kiv
