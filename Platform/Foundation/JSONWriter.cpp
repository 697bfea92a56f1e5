#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <system_error>

#include <simdjson.h>

#include "Platform/Foundation/JSON.h"

namespace kiv {

namespace {

/// Appends the JSON text of values to one string.
class Writer {
 public:
  enum class Layout { indented, oneLine };

  explicit Writer(Layout layout) : layout_(layout) {}

  /// False where a value has no JSON form; in the one-line layout null stands in its place.
  bool write(const Value& value);
  std::string takeText() { return std::move(text_); }
  [[nodiscard]] const std::string& objection() const noexcept { return objection_; }

 private:
  bool writeArray(const Array& array);
  bool writeDictionary(const Dictionary& dictionary);
  bool writeString(std::string_view string);
  bool writeDouble(double number);
  template <class Number>
  void writeNumber(Number number);
  void startItem(bool first);
  void endContainer(bool empty);
  bool refuse(std::string_view objection);

  const Layout layout_;
  int depth_ = 0;
  std::string text_;
  std::string objection_;
};

bool Writer::write(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::null:
      text_ += "null";
      return true;
    case Value::Kind::boolean:
      text_ += value.boolean() ? "true" : "false";
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
  if (depth_ >= JSON::deepestNesting) return refuse("arrays and dictionaries nest too deep");
  ++depth_;
  text_ += '[';
  bool first = true;
  for (const Value& element : array) {
    startItem(std::exchange(first, false));
    if (!write(element)) return false;
  }
  --depth_;
  endContainer(array.empty());
  text_ += ']';
  return true;
}

bool Writer::writeDictionary(const Dictionary& dictionary) {
  if (depth_ >= JSON::deepestNesting) return refuse("arrays and dictionaries nest too deep");
  ++depth_;
  text_ += '{';
  bool first = true;
  for (const auto& entry : dictionary) {
    startItem(std::exchange(first, false));
    if (!writeString(entry.key())) return false;
    text_ += ": ";
    if (!write(entry.value)) return false;
  }
  --depth_;
  endContainer(dictionary.empty());
  text_ += '}';
  return true;
}

bool Writer::writeString(std::string_view string) {
  if (!simdjson::validate_utf8(string.data(), string.size())) {
    return refuse("a string is not valid UTF-8");
  }
  text_ += '"';
  for (const char character : string) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      text_.append(1, '\\').append(1, character);
    } else if (character == '\n') {
      text_ += "\\n";
    } else if (character == '\t') {
      text_ += "\\t";
    } else if (code < 0x20) {
      constexpr std::string_view digits = "0123456789abcdef";
      text_.append("\\u00").append(1, digits[code >> 4]).append(1, digits[code & 15]);
    } else {
      text_ += character;
    }
  }
  text_ += '"';
  return true;
}

bool Writer::writeDouble(double number) {
  if (!std::isfinite(number)) return refuse("a number is not finite");
  const std::size_t start = text_.size();
  writeNumber(number);
  if (text_.find_first_of(".e", start) == std::string::npos) text_ += ".0";
  return true;
}

template <class Number>
void Writer::writeNumber(Number number) {
  std::array<char, 32> digits{};
  const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
  text_.append(digits.data(), result.ptr);
}

void Writer::startItem(bool first) {
  if (!first) text_ += layout_ == Layout::oneLine ? ", " : ",";
  if (layout_ == Layout::indented) {
    text_.append(1, '\n').append(static_cast<std::size_t>(depth_) * 2, ' ');
  }
}

void Writer::endContainer(bool empty) {
  if (empty || layout_ == Layout::oneLine) return;
  text_.append(1, '\n').append(static_cast<std::size_t>(depth_) * 2, ' ');
}

bool Writer::refuse(std::string_view objection) {
  if (layout_ == Layout::oneLine) {
    text_ += "null";
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
  if (!writer.write(value)) {
    fail(error, Error(JSONErrorDomain, static_cast<int>(JSONErrorCode::unwritable),
                      "Could not write JSON: " + writer.objection() + "."));
    return std::nullopt;
  }
  return Data(writer.takeText() + "\n");
}

std::string JSON::describe(const Value& value) {
  Writer writer(Writer::Layout::oneLine);
  writer.write(value);
  return writer.takeText();
}

}  // namespace kiv
