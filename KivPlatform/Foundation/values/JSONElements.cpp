// The scan does not validate: the parser checks each element later. It only has to find where an
// element ends, and must not be misled by brackets in strings.

#include "KivPlatform/Foundation/values/JSONElements.h"

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

}  // namespace kiv
