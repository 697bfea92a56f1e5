// Parses JSON with simdjson's on-demand parser, so that values are built directly from the text,
// without an intermediate tree. simdjson does not report the line and column of an error; they are
// computed here.

#include <algorithm>
#include <limits>
#include <new>
#include <string>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include <simdjson.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/Foundation/values/JSONText.h"

namespace kiv {

namespace {

namespace ondemand = simdjson::ondemand;
using simdjson::error_code;

/// Why parsing failed. `cause` completes a sentence whose subject is the text. `location` points
/// into the text, or is nullptr if unknown.
struct Fault {
  JSONErrorCode code = JSONErrorCode::malformed;
  std::string cause;
  const char* location = nullptr;
};

/// An array that is being parsed: the parser's position in it, and the elements so far.
struct ArrayLevel {
  using Iterator = decltype(std::declval<ondemand::array&>().begin());

  Iterator next;
  Iterator end;
  Array array;
};

/// The same for an object.
struct DictionaryLevel {
  using Iterator = decltype(std::declval<ondemand::object&>().begin());

  Iterator next;
  Iterator end;
  std::size_t firstField = 0;          ///< The index of its first field in Builder::fields_.
  std::optional<Dictionary::Key> key;  ///< The key of the field that is being parsed.
};

/// Builds values from parsed texts. Must not be used again after a fault.
///
/// Open containers are kept on an explicit stack rather than the thread's, so that a thread with a
/// small stack can parse deeply nested text.
class Builder {
 public:
  /// The value of a whole text, or null and a fault.
  Value build(ondemand::document& document) { return build(document, 0); }
  /// The same for the text of an element of an array, which counts as one level of nesting.
  Value buildElement(ondemand::document& document) { return build(document, 1); }
  [[nodiscard]] bool failed() const noexcept { return failed_; }
  [[nodiscard]] const Fault& fault() const noexcept { return fault_; }

 private:
  Value build(ondemand::document& document, std::size_t depth);
  Value buildLevels();
  void buildChild(ondemand::value value);
  void beginContainer(ondemand::value value, ondemand::json_type type);
  void beginArray(simdjson::simdjson_result<ondemand::array> source);
  void beginDictionary(simdjson::simdjson_result<ondemand::object> source);
  std::optional<ondemand::value> nextChild();
  std::optional<ondemand::value> nextElement(ArrayLevel& level);
  std::optional<ondemand::value> nextField(DictionaryLevel& level);
  void take(Value value);
  Value endContainer();
  Value buildNumber(ondemand::value value);
  static Value buildDouble(std::string_view token);
  Value buildLargeInteger(std::string_view token);
  Value buildString(ondemand::value value);
  Value buildLiteral(ondemand::value value, ondemand::json_type type);
  Dictionary takeFields(std::size_t first);
  Dictionary::Key sharedKey(std::string_view key);
  /// Records the first fault, at `location` or else at the parser's position.
  Value fail(JSONErrorCode code, std::string cause, const char* location = nullptr);
  Value fail(error_code error, const char* location = nullptr) {
    return fail(JSONErrorCode::malformed, describe(error), location);
  }
  static std::string describe(error_code error);

  ondemand::document* document_ = nullptr;
  /// The keys so far. The objects of a list mostly have the same keys, which share their characters
  /// in this way.
  std::unordered_map<std::string_view, Dictionary::Key> keys_;
  /// The fields of the open objects, those of an inner object after those of the outer one. A
  /// dictionary is built at the end of its object, when its size is known.
  std::vector<std::pair<Dictionary::Key, Value>> fields_;
  /// The open containers, the outermost first.
  std::vector<std::variant<ArrayLevel, DictionaryLevel>> levels_;
  std::size_t depth_ = 0;  // the nesting depth outside levels_
  bool failed_ = false;
  Fault fault_;
};

Value Builder::build(ondemand::document& document, std::size_t depth) {
  document_ = &document;
  depth_ = depth;
  ondemand::json_type type{};
  if (const error_code error = document.type().get(type)) return fail(error);
  if (type == ondemand::json_type::array) {
    beginArray(document.get_array());
  } else if (type == ondemand::json_type::object) {
    beginDictionary(document.get_object());
  } else {
    return fail(JSONErrorCode::bareValue, "has neither an array nor an object at its top level");
  }
  Value root = buildLevels();
  if (!failed_ && document_->current_location().error() != simdjson::OUT_OF_BOUNDS) {
    return fail(JSONErrorCode::malformed, "goes on after its end");
  }
  return root;
}

/// Parses until the outermost container is complete, and returns it.
Value Builder::buildLevels() {
  while (!failed_) {
    if (const auto child = nextChild()) {
      buildChild(*child);
    } else if (!failed_) {
      Value container = endContainer();
      if (levels_.empty()) return container;
      take(std::move(container));
    }
  }
  return {};
}

void Builder::buildChild(ondemand::value value) {
  ondemand::json_type type{};
  if (const error_code error = value.type().get(type)) {
    fail(error);
    return;
  }
  switch (type) {
    case ondemand::json_type::array:
    case ondemand::json_type::object:
      return beginContainer(value, type);
    case ondemand::json_type::number:
      return take(buildNumber(value));
    case ondemand::json_type::string:
      return take(buildString(value));
    default:
      return take(buildLiteral(value, type));
  }
}

void Builder::beginContainer(ondemand::value value, ondemand::json_type type) {
  if (depth_ + levels_.size() >= JSON::deepestNesting) {
    fail(JSONErrorCode::tooDeep, "nests too deep", value.raw_json_token().data());
  } else if (type == ondemand::json_type::array) {
    beginArray(value.get_array());
  } else {
    beginDictionary(value.get_object());
  }
}

void Builder::beginArray(simdjson::simdjson_result<ondemand::array> source) {
  ondemand::array elements;
  if (const error_code error = std::move(source).get(elements)) {
    fail(error);
  } else {
    levels_.emplace_back(ArrayLevel{elements.begin(), elements.end(), {}});
  }
}

void Builder::beginDictionary(simdjson::simdjson_result<ondemand::object> source) {
  ondemand::object fields;
  if (const error_code error = std::move(source).get(fields)) {
    fail(error);
  } else {
    levels_.emplace_back(DictionaryLevel{fields.begin(), fields.end(), fields_.size(), {}});
  }
}

/// The next value of the innermost container; nothing at its end or after a fault.
std::optional<ondemand::value> Builder::nextChild() {
  auto& level = levels_.back();
  if (auto* const array = std::get_if<ArrayLevel>(&level)) return nextElement(*array);
  return nextField(std::get<DictionaryLevel>(level));
}

std::optional<ondemand::value> Builder::nextElement(ArrayLevel& level) {
  if (!(level.next != level.end)) return std::nullopt;
  ondemand::value element;
  if (const error_code error = (*level.next).get(element)) {
    fail(error);
    return std::nullopt;
  }
  return element;
}

std::optional<ondemand::value> Builder::nextField(DictionaryLevel& level) {
  if (!(level.next != level.end)) return std::nullopt;
  ondemand::field field;
  if (const error_code error = (*level.next).get(field)) {
    fail(error);
    return std::nullopt;
  }
  const char* const quote = field.key().raw() - 1;
  std::string_view key;
  if (const error_code error = field.unescaped_key().get(key)) {
    fail(error, quote);
    return std::nullopt;
  }
  level.key = sharedKey(key);
  return field.value();
}

/// Adds a complete value to the innermost container and advances its iterator.
void Builder::take(Value value) {
  if (failed_) return;
  auto& level = levels_.back();
  if (auto* const array = std::get_if<ArrayLevel>(&level)) {
    array->array.append(std::move(value));
    ++array->next;
  } else {
    auto& dictionary = std::get<DictionaryLevel>(level);
    fields_.emplace_back(*std::exchange(dictionary.key, std::nullopt), std::move(value));
    ++dictionary.next;
  }
}

/// Pops the innermost container, which is complete.
Value Builder::endContainer() {
  auto& level = levels_.back();
  Value container;
  if (auto* const array = std::get_if<ArrayLevel>(&level)) {
    container = std::move(array->array);
  } else {
    container = takeFields(std::get<DictionaryLevel>(level).firstField);
  }
  levels_.pop_back();
  return container;
}

/// Moves the fields from index `first` on into a dictionary.
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

/// simdjson has checked that the number is well formed and not too large. It is converted here,
/// because simdjson 3.0 returns 0 for a number of more than 19 digits.
Value Builder::buildDouble(std::string_view token) {
  double number = 0;
  const bool isTooSmall = readDecimal(token, number) == std::errc::result_out_of_range;
  if (isTooSmall) return token.starts_with('-') ? -0.0 : 0.0;
  return number;
}

/// simdjson rejects integers of more than 64 bits. JSON allows them, so they become doubles.
Value Builder::buildLargeInteger(std::string_view token) {
  token = token.substr(0, token.find_last_not_of(" \t\r\n") + 1);
  const std::string_view digits = token.substr(token.starts_with('-') ? 1 : 0);
  const bool isInteger = !digits.empty() && digits.front() != '0' &&
                         digits.find_first_not_of("0123456789") == digits.npos;
  double number = 0;
  if (isInteger && readDecimal(token, number) == std::errc()) return number;
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
  constexpr std::size_t mostKeys = 64;  // few, so that keys chosen to collide cost little
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

// --- Faults that the parser finds before it parses values ----------------------------------------

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

/// parser::allocate() does not check whether it got the buffer for strings, but parser::iterate()
/// calls it again if that buffer is missing, so there are two attempts. If memory is still short
/// then, a larger allocation fails too, which is checked.
error_code iterate(ondemand::parser& parser, const simdjson::padded_string_view& text,
                   ondemand::document& document) {
  if (parser.capacity() < text.length()) {
    if (const error_code code = parser.allocate(text.length())) return code;
  }
  return parser.iterate(text).get(document);
}

Result<Value> readPadded(const simdjson::padded_string& padded) {
  const std::string_view text = padded;
  ondemand::parser parser;
  ondemand::document document;
  if (const error_code code = iterate(parser, padded, document)) {
    return errorOfFault(faultOfText(code, text), text);
  }
  Builder builder;
  Value root = builder.build(document);
  if (builder.failed()) return errorOfFault(builder.fault(), text);
  return root;
}

Result<Value> readWhole(std::string_view text) {
  const simdjson::padded_string padded(text);
  // If simdjson cannot allocate the copy, the padded string is empty.
  if (padded.size() != text.size()) throw std::bad_alloc();
  return readPadded(padded);
}

/// Parses an array of objects and arrays element by element. That saves a copy of the text, and the
/// parser needs memory for one element instead of all. Nothing if the text is anything else or has
/// a fault; readWhole() then finds out.
std::optional<Value> readElements(std::string_view text) {
  ondemand::parser parser;
  Builder builder;
  Array array;
  JSONElements elements(text);
  for (auto element = elements.next(); !element.empty(); element = elements.next()) {
    // The parser reads up to SIMDJSON_PADDING bytes beyond the element. The rest of the text serves
    // as padding if it is long enough.
    const auto left = static_cast<std::size_t>(text.data() + text.size() - element.data());
    simdjson::padded_string copy;
    simdjson::padded_string_view padded(element, left);
    if (left - element.size() < simdjson::SIMDJSON_PADDING) {
      copy = simdjson::padded_string(element);
      padded = copy;
    }
    ondemand::document document;
    if (iterate(parser, padded, document)) return std::nullopt;
    array.append(builder.buildElement(document));
    if (builder.failed()) return std::nullopt;
  }
  if (!elements.isAtEnd()) return std::nullopt;
  return array;
}

}  // namespace

Result<Value> JSON::read(const Data& text) {
  return read(text.view());
}

Result<Value> JSON::read(std::string_view text) {
  constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  try {
    if (auto list = readElements(text)) return *std::move(list);
    return readWhole(text);
  } catch (const std::bad_alloc&) {
  }
  return errorOfFault({JSONErrorCode::tooLarge, "is too large to read", nullptr}, {});
}

}  // namespace kiv
