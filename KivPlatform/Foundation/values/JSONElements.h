#pragma once

#include <cstddef>
#include <string_view>

namespace kiv {

/// Splits the text of a JSON array of objects and arrays into its elements, so that a long list can
/// be parsed one element at a time. The text must outlive the object.
///
/// Scans only brackets, quotes and commas. If isAtEnd() becomes true and each element is valid
/// JSON, the text is the array of these elements. Otherwise the text may still be valid JSON: the
/// array may have other elements, or the top level may be something else.
class JSONElements {
 public:
  explicit JSONElements(std::string_view text);

  /// The next element; empty at the end, or if the text is not such an array.
  std::string_view next();
  /// True if next() has returned all elements and nothing follows the array.
  [[nodiscard]] bool isAtEnd() const noexcept { return isAtEnd_; }

 private:
  void skipWhitespace();
  bool skip(char expected);
  [[nodiscard]] std::size_t endOfElement() const;

  std::string_view text_;
  std::size_t position_ = 0;
  bool isFirst_ = true;
  bool isCut_;  // false once next() has failed or reached the end
  bool isAtEnd_ = false;
};

}  // namespace kiv
