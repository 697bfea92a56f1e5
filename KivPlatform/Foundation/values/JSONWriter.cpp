// Writes JSON in two layouts: indented, because people read the saved list, and on one line for
// logs and small records. Pieces are buffered and strings are scanned eight bytes at a time,
// because a list may be long.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <simdjson.h>

#include "KivPlatform/Foundation/values/JSON.h"

namespace kiv {

namespace {

constexpr std::string_view notUTF8 = "a string is not valid UTF-8";

/// Appends the JSON text of values to one string.
///
/// Open containers are kept on an explicit stack rather than the thread's, so that a thread with a
/// small stack can write deeply nested values.
class Writer {
 public:
  enum class Layout { indented, oneLine };

  explicit Writer(Layout layout) : layout_(layout) {}

  /// Writes the value and everything in it. In the indented layout, false if a value cannot be
  /// represented in JSON; strings are not checked for UTF-8 until isValidText(). In the one-line
  /// layout such a value is replaced by null, and the result is true.
  bool write(const Value& value);
  /// False if the text so far is not valid UTF-8, because one of its strings is not.
  bool isValidText() {
    flush();
    return simdjson::validate_utf8(text_.data(), text_.size()) || refuse(notUTF8);
  }
  /// The text; in the indented layout with a line feed at its end.
  std::string takeText() {
    if (layout_ == Layout::indented) put("\n");
    flush();
    return std::move(text_);
  }
  [[nodiscard]] const std::string& problem() const noexcept { return problem_; }

 private:
  /// An array or a dictionary that is being written.
  struct Level {
    const Value* firstValue = nullptr;  // of an array
    const Value* nextValue = nullptr;
    const Value* lastValue = nullptr;
    const Dictionary::Entry* nextEntry = nullptr;  // of a dictionary
    const Dictionary::Entry* lastEntry = nullptr;
    bool isArray = false;
    bool isEmpty = true;  // so far

    [[nodiscard]] bool isAtEnd() const noexcept {
      return nextValue == lastValue && nextEntry == lastEntry;
    }
  };

  bool writeValue(const Value& value);
  bool writeNext();
  bool beginContainer(const Value& value);
  void endContainer();
  void makeRoom(std::size_t expectedSize);
  bool writeString(std::string_view string);
  static bool needsEscape(char character);
  static std::size_t lengthWithoutEscapes(std::string_view string);
  void writeEscape(char character);
  bool writeDouble(double number);
  template <class Number>
  static std::string_view textOfNumber(Number number, std::array<char, 32>& digits);
  template <class Number>
  void writeNumber(Number number);
  void startItem(bool first);
  void startLine();
  bool refuse(std::string_view problem);

  void put(std::string_view characters) {
    if (characters.size() > buffer_.size() - used_) return putLong(characters);
    std::memcpy(buffer_.data() + used_, characters.data(), characters.size());
    used_ += characters.size();
  }
  void putLong(std::string_view characters);
  void flush();

  const Layout layout_;
  std::vector<Level> levels_;  // the outermost first
  // Collects the pieces, most of which are short, before they are appended to the text.
  std::array<char, 4096> buffer_;
  std::size_t used_ = 0;
  std::string text_;
  std::string problem_;
};

void Writer::putLong(std::string_view characters) {
  flush();
  text_ += characters;
}

void Writer::flush() {
  text_.append(buffer_.data(), used_);
  used_ = 0;
}

bool Writer::write(const Value& value) {
  bool isWritten = writeValue(value);
  while (isWritten && !levels_.empty()) {
    if (levels_.back().isAtEnd()) {
      endContainer();
    } else {
      isWritten = writeNext();
    }
  }
  return isWritten;
}

/// Writes a value; of an array or a dictionary, only the opening bracket.
bool Writer::writeValue(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::null:
      put("null");
      return true;
    case Value::Kind::boolean:
      put(value.boolean() ? "true" : "false");
      return true;
    case Value::Kind::signedInteger:
      writeNumber(static_cast<std::int64_t>(value.unsignedInteger()));
      return true;
    case Value::Kind::unsignedInteger:
      writeNumber(value.unsignedInteger());
      return true;
    case Value::Kind::floating:
      return writeDouble(value.floating());
    case Value::Kind::string:
      return writeString(value.stringView());
    case Value::Kind::array:
    case Value::Kind::dictionary:
      return beginContainer(value);
  }
  return false;
}

/// Writes the next value of the innermost container, in a dictionary after its key.
bool Writer::writeNext() {
  constexpr std::ptrdiff_t sample = 64;
  Level& level = levels_.back();
  const bool isOutermost = levels_.size() == 1;
  if (isOutermost && level.isArray && level.nextValue - level.firstValue == sample) {
    const auto count = static_cast<std::size_t>(level.lastValue - level.firstValue);
    makeRoom((text_.size() + used_) / sample * count);
  }
  startItem(std::exchange(level.isEmpty, false));
  if (level.isArray) return writeValue(*level.nextValue++);
  const Dictionary::Entry& entry = *level.nextEntry++;
  if (!writeString(entry.key())) return false;
  put(": ");
  return writeValue(entry.value);
}

bool Writer::beginContainer(const Value& value) {
  if (levels_.size() >= JSON::deepestNesting)
    return refuse("arrays and dictionaries nest too deep");
  Level level;
  level.isArray = value.isArray();
  level.firstValue = level.nextValue = value.array().begin();
  level.lastValue = value.array().end();
  level.nextEntry = value.dictionary().begin();
  level.lastEntry = value.dictionary().end();
  levels_.push_back(level);
  put(level.isArray ? "[" : "{");
  return true;
}

void Writer::endContainer() {
  const Level level = levels_.back();
  levels_.pop_back();
  if (!level.isEmpty && layout_ == Layout::indented) startLine();
  put(level.isArray ? "]" : "}");
}

/// Avoids reallocations. The elements of a long list have similar sizes, so the size of the text is
/// estimated from the first ones.
void Writer::makeRoom(std::size_t expectedSize) {
  constexpr std::size_t mostAtOnce = std::size_t{1} << 26;  // the first elements may not be typical
  text_.reserve(std::min(expectedSize + expectedSize / 16, mostAtOnce));
}

bool Writer::writeString(std::string_view string) {
  // The indented text is checked as a whole at its end, which is faster: quotes around a string do
  // not make invalid UTF-8 valid.
  if (layout_ == Layout::oneLine && !simdjson::validate_utf8(string.data(), string.size())) {
    return refuse(notUTF8);
  }
  put("\"");
  while (!string.empty()) {
    const std::size_t plain = lengthWithoutEscapes(string);
    put(string.substr(0, plain));
    if (plain < string.size()) writeEscape(string[plain]);
    string.remove_prefix(std::min(plain + 1, string.size()));
  }
  put("\"");
  return true;
}

bool Writer::needsEscape(char character) {
  return character == '"' || character == '\\' || static_cast<unsigned char>(character) < 0x20;
}

/// The number of bytes at the start that need no escape. Tests eight bytes at a time.
std::size_t Writer::lengthWithoutEscapes(std::string_view string) {
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t highBits = 0x80 * ones;
  // hasZero() sets the high bit of each zero byte, and `controls` that of each byte less than 0x20.
  // Bytes above such a byte may be flagged wrongly, so the loop below checks single bytes.
  const auto hasZero = [](std::uint64_t bytes) { return (bytes - ones) & ~bytes & highBits; };
  std::size_t at = 0;
  for (; at + sizeof(std::uint64_t) <= string.size(); at += sizeof(std::uint64_t)) {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, string.data() + at, sizeof bytes);
    const std::uint64_t controls = (bytes - 0x20 * ones) & ~bytes & highBits;
    if (controls | hasZero(bytes ^ ('"' * ones)) | hasZero(bytes ^ ('\\' * ones))) break;
  }
  while (at < string.size() && !needsEscape(string[at]))
    ++at;
  return at;
}

void Writer::writeEscape(char character) {
  if (character == '"' || character == '\\') {
    put("\\");
    put({&character, 1});
  } else if (character == '\n') {
    put("\\n");
  } else if (character == '\t') {
    put("\\t");
  } else {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto code = static_cast<unsigned char>(character);
    put("\\u00");
    put(digits.substr(code >> 4, 1));
    put(digits.substr(code & 15, 1));
  }
}

bool Writer::writeDouble(double number) {
  if (!std::isfinite(number)) return refuse("a number is not finite");
  std::array<char, 32> digits{};
  const std::string_view text = textOfNumber(number, digits);
  put(text);
  if (text.find_first_of(".e") == text.npos) put(".0");
  return true;
}

template <class Number>
std::string_view Writer::textOfNumber(Number number, std::array<char, 32>& digits) {
  const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
  return {digits.data(), static_cast<std::size_t>(result.ptr - digits.data())};
}

template <class Number>
void Writer::writeNumber(Number number) {
  std::array<char, 32> digits{};
  put(textOfNumber(number, digits));
}

void Writer::startItem(bool first) {
  if (!first) put(layout_ == Layout::oneLine ? ", " : ",");
  if (layout_ == Layout::indented) startLine();
}

void Writer::startLine() {
  constexpr std::string_view lineAndSpaces = "\n                                ";
  const std::size_t spaces = levels_.size() * 2;
  if (spaces < lineAndSpaces.size()) {
    put(lineAndSpaces.substr(0, 1 + spaces));
  } else {
    put("\n");
    put(std::string(spaces, ' '));
  }
}

bool Writer::refuse(std::string_view problem) {
  if (layout_ == Layout::oneLine) {
    put("null");
    return true;
  }
  problem_ = problem;
  return false;
}

}  // namespace

Result<Data> JSON::write(const Value& value) {
  if (!value.isArray() && !value.isDictionary()) {
    return Error(JSONErrorDomain, static_cast<int>(JSONErrorCode::bareValue),
                 "Only an array or a dictionary can be written as JSON text.");
  }
  Writer writer(Writer::Layout::indented);
  if (!writer.write(value) || !writer.isValidText()) {
    return Error(JSONErrorDomain, static_cast<int>(JSONErrorCode::unwritable),
                 "Could not write JSON: " + writer.problem() + ".");
  }
  return Data(writer.takeText());
}

std::string JSON::toCompactString(const Value& value) {
  Writer writer(Writer::Layout::oneLine);
  writer.write(value);
  return writer.takeText();
}

}  // namespace kiv
