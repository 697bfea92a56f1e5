#pragma once

#include <cstddef>
#include <string_view>

namespace kiv {

/// Cuts the text of a JSON array of objects and arrays into the texts of its elements, so that a
/// long list can be parsed piece by piece.
///
/// It looks at brackets, quotes and commas alone. Where it comes to the end, and each piece is
/// valid JSON by itself, the whole text is the array of the pieces. Where it does not, the text may
/// still be valid: it may have other elements, or another top level.
class JSONElements {
 public:
  explicit JSONElements(std::string_view text);

  /// The next element, a part of the text; empty where there is none that it can cut.
  std::string_view next();
  /// True where every element was cut, and nothing follows the array.
  [[nodiscard]] bool isAtEnd() const noexcept { return isAtEnd_; }

 private:
  void skipWhitespace();
  bool skip(char expected);
  [[nodiscard]] std::size_t endOfElement() const;

  std::string_view text_;
  std::size_t position_ = 0;
  bool isFirst_ = true;
  bool isCut_;  // as far as it has come
  bool isAtEnd_ = false;
};

}  // namespace kiv
