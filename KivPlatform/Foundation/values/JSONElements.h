#pragma once

#include <cstddef>
#include <string_view>

namespace kiv {

/// Splits the text of a JSON array of objects and arrays into its elements, so that a long list can
/// be parsed piece by piece.
///
/// It scans only brackets, quotes and commas. If it reaches the end and each piece is valid JSON,
/// the text is the array of the pieces. Otherwise the text may still be valid, with other elements
/// or another top level.
class JSONElements {
 public:
  explicit JSONElements(std::string_view text);

  /// The next element; empty if there is none that it can split off.
  std::string_view next();
  /// True if all elements were split off and nothing follows the array.
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
