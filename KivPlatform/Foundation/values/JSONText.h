#pragma once

#include <cstddef>
#include <string_view>
#include <system_error>

/// What JSONReader does without the parser: splitting a list into its elements, converting decimal
/// numbers, and locating errors.
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

/// Parses the JSON number at the start of the text into the nearest double, independently of the
/// locale. If the number is too large, returns result_out_of_range and leaves `number` unchanged.
/// If it is too small, does the same or yields a zero with its sign.
std::errc readDecimal(std::string_view text, double& number);

/// The same with the C library, for standard libraries without std::from_chars for double.
std::errc readDecimalByC(std::string_view text, double& number);

/// The first byte that is not valid UTF-8, or the end of the text.
const char* firstInvalidUTF8(std::string_view text);

/// The first control character in a string of the text, or the end of the text.
const char* firstControlCharacterInString(std::string_view text);

}  // namespace kiv
