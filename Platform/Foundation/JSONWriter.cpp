#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <system_error>

#include <simdjson.h>

#include "Platform/Foundation/JSON.h"

namespace kiv {

namespace {

constexpr std::string_view notUTF8 = "a string is not valid UTF-8";

/// Appends the JSON text of values to one string.
class Writer {
 public:
  enum class Layout { indented, oneLine };

  explicit Writer(Layout layout) : layout_(layout) {}

  /// False where a value has no JSON form; in the one-line layout null stands in its place.
  /// In the indented layout strings are taken as they are; isValidText() then tells.
  bool write(const Value& value);
  /// False where the text so far is not UTF-8, since a string is not.
  bool isValidText() {
    flush();
    return simdjson::validate_utf8(text_.data(), text_.size()) || refuse(notUTF8);
  }
  /// The text; in the indented layout it ends its last line.
  std::string takeText() {
    if (layout_ == Layout::indented) put("\n");
    flush();
    return std::move(text_);
  }
  [[nodiscard]] const std::string& objection() const noexcept { return objection_; }

 private:
  bool writeArray(const Array& array);
  void makeRoom(std::size_t expectedSize);
  bool writeDictionary(const Dictionary& dictionary);
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
  void endContainer(bool empty);
  void startLine();
  bool refuse(std::string_view objection);

  void put(std::string_view characters) {
    if (characters.size() > buffer_.size() - used_) return putLong(characters);
    std::memcpy(buffer_.data() + used_, characters.data(), characters.size());
    used_ += characters.size();
  }
  void putLong(std::string_view characters);
  void flush();

  const Layout layout_;
  int depth_ = 0;
  // Most pieces are short: they are gathered before they join the text.
  std::array<char, 4096> buffer_;
  std::size_t used_ = 0;
  std::string text_;
  std::string objection_;
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
      return writeArray(value.array());
    case Value::Kind::dictionary:
      return writeDictionary(value.dictionary());
  }
  return false;
}

bool Writer::writeArray(const Array& array) {
  constexpr std::size_t sample = 64;
  if (depth_ >= JSON::deepestNesting) return refuse("arrays and dictionaries nest too deep");
  ++depth_;
  put("[");
  std::size_t index = 0;
  for (const Value& element : array) {
    if (index == sample && depth_ == 1) makeRoom((text_.size() + used_) / sample * array.size());
    startItem(index++ == 0);
    if (!write(element)) return false;
  }
  --depth_;
  endContainer(array.empty());
  put("]");
  return true;
}

/// The elements of a long list are much alike: room for all is made when a few have shown it.
void Writer::makeRoom(std::size_t expectedSize) {
  constexpr std::size_t mostAtOnce = std::size_t{1} << 26;  // the first few may be odd ones
  text_.reserve(std::min(expectedSize + expectedSize / 16, mostAtOnce));
}

bool Writer::writeDictionary(const Dictionary& dictionary) {
  if (depth_ >= JSON::deepestNesting) return refuse("arrays and dictionaries nest too deep");
  ++depth_;
  put("{");
  bool first = true;
  for (const auto& entry : dictionary) {
    startItem(std::exchange(first, false));
    if (!writeString(entry.key())) return false;
    put(": ");
    if (!write(entry.value)) return false;
  }
  --depth_;
  endContainer(dictionary.empty());
  put("}");
  return true;
}

bool Writer::writeString(std::string_view string) {
  // The indented text is checked as a whole at its end: what is wrong within quotes stays so there.
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

/// How many characters at the start can be written as they are; asks for eight at a time.
std::size_t Writer::lengthWithoutEscapes(std::string_view string) {
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t highBits = 0x80 * ones;
  // Of a byte below 0x80, a zero among the bytes, or one that is less, shows as its high bit.
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

void Writer::endContainer(bool empty) {
  if (!empty && layout_ == Layout::indented) startLine();
}

void Writer::startLine() {
  constexpr std::string_view lineAndSpaces = "\n                                ";
  const std::size_t spaces = static_cast<std::size_t>(depth_) * 2;
  if (spaces < lineAndSpaces.size()) {
    put(lineAndSpaces.substr(0, 1 + spaces));
  } else {
    put("\n");
    put(std::string(spaces, ' '));
  }
}

bool Writer::refuse(std::string_view objection) {
  if (layout_ == Layout::oneLine) {
    put("null");
    return true;
  }
  objection_ = objection;
  return false;
}

}  // namespace

std::optional<Data> JSON::write(const Value& value, std::optional<Error>* error) {
  if (!value.isArray() && !value.isDictionary()) {
    fail(error, Error(JSONErrorDomain, static_cast<int>(JSONErrorCode::bareValue),
                      "Only an array or a dictionary can be written as JSON text."));
    return std::nullopt;
  }
  Writer writer(Writer::Layout::indented);
  if (!writer.write(value) || !writer.isValidText()) {
    fail(error, Error(JSONErrorDomain, static_cast<int>(JSONErrorCode::unwritable),
                      "Could not write JSON: " + writer.objection() + "."));
    return std::nullopt;
  }
  return Data(writer.takeText());
}

std::string JSON::describe(const Value& value) {
  Writer writer(Writer::Layout::oneLine);
  writer.write(value);
  return writer.takeText();
}

}  // namespace kiv
