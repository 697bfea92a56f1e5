#include <algorithm>
#include <charconv>
#include <limits>
#include <new>
#include <string>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include <simdjson.h>

#include "Platform/Foundation/JSON.h"
#include "Platform/Foundation/JSONElements.h"

namespace kiv {

namespace {

namespace ondemand = simdjson::ondemand;
using simdjson::error_code;

/// What stopped the reader: its code, the cause as an end of a sentence, and where.
struct Fault {
  JSONErrorCode code = JSONErrorCode::malformed;
  std::string cause;
  const char* location = nullptr;
};

/// Makes the value trees of texts. After a fault it is of no more use.
class Builder {
 public:
  /// The root of a whole text, or null with a fault.
  Value build(ondemand::document& document) { return build(document, 0); }
  /// The same of an element's text, which lies within an array.
  Value buildElement(ondemand::document& document) { return build(document, 1); }
  [[nodiscard]] bool failed() const noexcept { return failed_; }
  [[nodiscard]] const Fault& fault() const noexcept { return fault_; }

 private:
  Value build(ondemand::document& document, int depth);
  Value buildValue(ondemand::value value);
  Value buildContainer(ondemand::value value, ondemand::json_type type);
  Value buildArray(simdjson::simdjson_result<ondemand::array> source);
  Value buildDictionary(simdjson::simdjson_result<ondemand::object> source);
  Value buildNumber(ondemand::value value);
  static Value buildDouble(std::string_view token);
  Value buildLargeInteger(std::string_view token);
  Value buildString(ondemand::value value);
  Value buildLiteral(ondemand::value value, ondemand::json_type type);
  Dictionary takeFields(std::size_t first);
  Dictionary::Key sharedKey(std::string_view key);
  /// Notes the first fault, at `location` or else where the parser stands.
  Value fail(JSONErrorCode code, std::string cause, const char* location = nullptr);
  Value fail(error_code error, const char* location = nullptr) {
    return fail(JSONErrorCode::malformed, describe(error), location);
  }
  static std::string describe(error_code error);

  ondemand::document* document_ = nullptr;
  /// Keys seen already: the objects of a list mostly have the same keys, and share them.
  std::unordered_map<std::string_view, Dictionary::Key> keys_;
  /// The fields of the objects that are being read, those of an inner one after its outer's: a
  /// dictionary is made when it is known how large it is to be.
  std::vector<std::pair<Dictionary::Key, Value>> fields_;
  int depth_ = 0;
  bool failed_ = false;
  Fault fault_;
};

Value Builder::build(ondemand::document& document, int depth) {
  document_ = &document;
  depth_ = depth;
  ondemand::json_type type{};
  if (const error_code error = document.type().get(type)) return fail(error);
  Value root;
  if (type == ondemand::json_type::array) {
    root = buildArray(document.get_array());
  } else if (type == ondemand::json_type::object) {
    root = buildDictionary(document.get_object());
  } else {
    return fail(JSONErrorCode::bareValue, "has neither an array nor an object at its top level");
  }
  if (!failed_ && document_->current_location().error() != simdjson::OUT_OF_BOUNDS) {
    return fail(JSONErrorCode::malformed, "goes on after its end");
  }
  return root;
}

Value Builder::buildValue(ondemand::value value) {
  ondemand::json_type type{};
  if (const error_code error = value.type().get(type)) return fail(error);
  switch (type) {
    case ondemand::json_type::array:
    case ondemand::json_type::object:
      return buildContainer(value, type);
    case ondemand::json_type::number:
      return buildNumber(value);
    case ondemand::json_type::string:
      return buildString(value);
    default:
      return buildLiteral(value, type);
  }
}

Value Builder::buildContainer(ondemand::value value, ondemand::json_type type) {
  if (depth_ >= JSON::deepestNesting) {
    return fail(JSONErrorCode::tooDeep, "nests too deep", value.raw_json_token().data());
  }
  if (type == ondemand::json_type::array) return buildArray(value.get_array());
  return buildDictionary(value.get_object());
}

Value Builder::buildArray(simdjson::simdjson_result<ondemand::array> source) {
  ondemand::array elements;
  if (const error_code error = std::move(source).get(elements)) return fail(error);
  ++depth_;
  Array array;
  for (auto result : elements) {
    ondemand::value element;
    if (const error_code error = std::move(result).get(element)) return fail(error);
    array.append(buildValue(element));
    if (failed_) return {};
  }
  --depth_;
  return array;
}

Value Builder::buildDictionary(simdjson::simdjson_result<ondemand::object> source) {
  ondemand::object fields;
  if (const error_code error = std::move(source).get(fields)) return fail(error);
  ++depth_;
  const std::size_t first = fields_.size();
  for (auto result : fields) {
    ondemand::field field;
    if (const error_code error = std::move(result).get(field)) return fail(error);
    const char* const quote = field.key().raw() - 1;
    std::string_view key;
    if (const error_code error = field.unescaped_key().get(key)) return fail(error, quote);
    auto sharedString = sharedKey(key);
    auto value = buildValue(field.value());
    if (failed_) return {};
    fields_.emplace_back(std::move(sharedString), std::move(value));
  }
  --depth_;
  return takeFields(first);
}

/// The dictionary of the fields from the first one on.
Dictionary Builder::takeFields(std::size_t first) {
  Dictionary dictionary;
  if (first == fields_.size()) return dictionary;
  dictionary.reserve(fields_.size() - first);
  for (std::size_t index = first; index < fields_.size(); ++index) {
    dictionary.set(std::move(fields_[index].first), std::move(fields_[index].second));
  }
  fields_.erase(fields_.begin() + static_cast<std::ptrdiff_t>(first), fields_.end());
  return dictionary;
}

Value Builder::buildNumber(ondemand::value value) {
  const std::string_view token = value.raw_json_token();
  ondemand::number number;
  if (value.get_number().get(number)) return buildLargeInteger(token);
  if (number.is_int64()) return number.get_int64();
  if (number.is_uint64()) return number.get_uint64();
  return buildDouble(token);
}

/// The parser has found the number well formed and not too large. Its value is read here: that of
/// simdjson 3.0 is 0 where the number has more than 19 digits.
Value Builder::buildDouble(std::string_view token) {
  double number = 0;
  const auto result = std::from_chars(token.data(), token.data() + token.size(), number);
  // Some libraries answer with the zero itself, some with this error and no number.
  const bool isTooSmall = result.ec == std::errc::result_out_of_range;
  if (isTooSmall) return token.starts_with('-') ? -0.0 : 0.0;
  return number;
}

/// The parser refuses integers beyond 64 bits; JSON allows them, so they become doubles.
Value Builder::buildLargeInteger(std::string_view token) {
  token = token.substr(0, token.find_last_not_of(" \t\r\n") + 1);
  const std::string_view digits = token.substr(token.starts_with('-') ? 1 : 0);
  const bool isInteger = !digits.empty() && digits.front() != '0' &&
                         digits.find_first_not_of("0123456789") == digits.npos;
  double number = 0;
  if (isInteger &&
      std::from_chars(token.data(), token.data() + token.size(), number).ec == std::errc()) {
    return number;
  }
  return fail(simdjson::NUMBER_ERROR, token.data());
}

Value Builder::buildString(ondemand::value value) {
  const char* const quote = value.raw_json_token().data();
  std::string_view string;
  if (const error_code error = value.get_string().get(string)) return fail(error, quote);
  return string;
}

Value Builder::buildLiteral(ondemand::value value, ondemand::json_type type) {
  if (type == ondemand::json_type::boolean) {
    bool boolean = false;
    if (const error_code error = value.get_bool().get(boolean)) return fail(error);
    return boolean;
  }
  bool isNull = false;
  if (const error_code error = value.is_null().get(isNull)) return fail(error);
  return isNull ? Value() : fail(JSONErrorCode::malformed, "has a value that is none");
}

Dictionary::Key Builder::sharedKey(std::string_view key) {
  constexpr std::size_t mostKeys = 64;  // so few that keys chosen to collide cost little
  if (const auto known = keys_.find(key); known != keys_.end()) return known->second;
  Dictionary::Key string(key);
  if (keys_.size() < mostKeys) keys_.emplace(string.view(), string);
  return string;
}

Value Builder::fail(JSONErrorCode code, std::string cause, const char* location) {
  if (failed_) return {};
  failed_ = true;
  if (!location && document_->current_location().get(location)) location = nullptr;
  fault_ = {code, std::move(cause), location};
  return {};
}

std::string Builder::describe(error_code error) {
  switch (error) {
    case simdjson::STRING_ERROR:
      return "has a string with a wrong escape";
    case simdjson::NUMBER_ERROR:
      return "has a number that cannot be read";
    case simdjson::INCOMPLETE_ARRAY_OR_OBJECT:
      return "does not end with the bracket that closes it";
    default:
      return "is not well formed";
  }
}

// --- Faults that the parser finds before it reads values -----------------------------------------

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

Fault faultOfText(error_code error, std::string_view text) {
  const char* const end = text.data() + text.size();
  switch (error) {
    case simdjson::EMPTY:
      return {JSONErrorCode::malformed, "is empty", text.data()};
    case simdjson::UTF8_ERROR:
      return {JSONErrorCode::malformed, "is not valid UTF-8", firstInvalidUTF8(text)};
    case simdjson::UNCLOSED_STRING:
      return {JSONErrorCode::malformed, "ends inside a string", end};
    case simdjson::UNESCAPED_CHARS:
      return {JSONErrorCode::malformed, "has a control character inside a string",
              firstControlCharacterInString(text)};
    case simdjson::CAPACITY:
    case simdjson::MEMALLOC:
      return {JSONErrorCode::tooLarge, "is too large to read", nullptr};
    default:
      return {JSONErrorCode::malformed, "is not well formed", end};
  }
}

Error errorOfFault(const Fault& fault, std::string_view text) {
  std::string message = "The JSON text " + fault.cause;
  if (fault.location >= text.data() && fault.location <= text.data() + text.size()) {
    const auto offset = static_cast<std::size_t>(fault.location - text.data());
    const std::string_view before = text.substr(0, offset);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const std::size_t column = offset - (before.rfind('\n') + 1) + 1;
    message += " (line " + std::to_string(line) + ", column " + std::to_string(column) + ")";
  }
  return Error(JSONErrorDomain, static_cast<int>(fault.code), message + ".");
}

std::optional<Value> readPadded(const simdjson::padded_string& padded,
                                std::optional<Error>* error) {
  const std::string_view text = padded;
  ondemand::parser parser;
  ondemand::document document;
  if (const error_code code = parser.iterate(padded).get(document)) {
    kiv::fail(error, errorOfFault(faultOfText(code, text), text));
    return std::nullopt;
  }
  Builder builder;
  Value root = builder.build(document);
  if (!builder.failed()) return root;
  kiv::fail(error, errorOfFault(builder.fault(), text));
  return std::nullopt;
}

/// The whole of a text, with the error where it has a fault.
std::optional<Value> readWhole(std::string_view text, std::optional<Error>* error) {
  const simdjson::padded_string padded(text);
  // Without memory for its copy of the text, the parser's string is empty.
  if (padded.size() != text.size()) throw std::bad_alloc();
  return readPadded(padded, error);
}

/// The array of a text that is one of objects and arrays, read element by element: no copy of the
/// text is made, and the parser needs room for one element instead of all. Nothing where the text
/// is another, or has a fault.
std::optional<Value> readElements(std::string_view text) {
  ondemand::parser parser;
  Builder builder;
  Array array;
  JSONElements elements(text);
  for (auto element = elements.next(); !element.empty(); element = elements.next()) {
    // The parser may look at what follows an element in the text, as long as there is enough of it.
    const auto left = static_cast<std::size_t>(text.data() + text.size() - element.data());
    simdjson::padded_string copy;
    simdjson::padded_string_view padded(element, left);
    if (left - element.size() < simdjson::SIMDJSON_PADDING) {
      copy = simdjson::padded_string(element);
      padded = copy;
    }
    ondemand::document document;
    if (parser.iterate(padded).get(document)) return std::nullopt;
    array.append(builder.buildElement(document));
    if (builder.failed()) return std::nullopt;
  }
  if (!elements.isAtEnd()) return std::nullopt;
  return array;
}

}  // namespace

OptionalValue JSON::read(const Data& text, std::optional<Error>* error) {
  constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
  std::string_view characters = text.view();
  if (characters.starts_with(byteOrderMark)) characters.remove_prefix(byteOrderMark.size());
  try {
    auto value = readElements(characters);
    return value ? value : readWhole(characters, error);
  } catch (const std::bad_alloc&) {
  }
  kiv::fail(error, errorOfFault({JSONErrorCode::tooLarge, "is too large to read", nullptr}, {}));
  return std::nullopt;
}

}  // namespace kiv
