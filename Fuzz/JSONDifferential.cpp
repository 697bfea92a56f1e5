#include "Fuzz/JSONDifferential.h"

#include <cmath>

#include <simdjson.h>

#include "KivPlatform/Foundation/values/JSON.h"

namespace kiv::fuzz {

namespace {

namespace dom = simdjson::dom;

Value valueOf(const dom::element& element) {
  switch (element.type()) {
    case dom::element_type::ARRAY: {
      Array array;
      for (const dom::element child : dom::array(element))
        array.append(valueOf(child));
      return array;
    }
    case dom::element_type::OBJECT: {
      Dictionary dictionary;
      for (const auto& [key, child] : dom::object(element))
        dictionary.set(key, valueOf(child));
      return dictionary;
    }
    case dom::element_type::INT64:
      return std::int64_t(element);
    case dom::element_type::UINT64:
      return std::uint64_t(element);
    case dom::element_type::DOUBLE:
      return double(element);
    case dom::element_type::STRING:
      return std::string_view(element);
    case dom::element_type::BOOL:
      return bool(element);
    case dom::element_type::NULL_VALUE:
      return nullptr;
  }
  return nullptr;
}

/// Compares content, kind, sign and order of keys: stricter than operator== of values.
bool areIdentical(const Value& a, const Value& b);

bool areIdenticalDictionaries(const Dictionary& a, const Dictionary& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t index = 0; index < a.size(); ++index) {
    const auto& one = a.begin()[index];
    const auto& other = b.begin()[index];
    if (one.key() != other.key() || !areIdentical(one.value, other.value)) return false;
  }
  return true;
}

bool areIdentical(const Value& a, const Value& b) {
  if (a.kind() != b.kind()) return false;
  if (a.isDictionary()) return areIdenticalDictionaries(a.dictionary(), b.dictionary());
  if (!a.isArray()) return a == b && std::signbit(a.floating()) == std::signbit(b.floating());
  if (a.array().size() != b.array().size()) return false;
  for (std::size_t index = 0; index < a.array().size(); ++index) {
    if (!areIdentical(a.array()[index], b.array()[index])) return false;
  }
  return true;
}

// The DOM API rejects integers beyond 64 bits, so integers of 19 digits or more are made doubles on
// both sides: in its text, and in our value.

std::string withLongIntegersAsDoubles(std::string_view text) {
  constexpr std::string_view digits = "0123456789";
  constexpr std::string_view numberCharacters = "0123456789+-.eE";
  std::string result;
  bool inString = false;
  for (std::size_t at = 0; at < text.size();) {
    const bool isNumber = !inString && digits.find(text[at]) != digits.npos;
    const bool isEscape = inString && text[at] == '\\';
    if (!isEscape && text[at] == '"') inString = !inString;
    const std::size_t end =
        isNumber ? text.find_first_not_of(numberCharacters, at) : at + (isEscape ? 2 : 1);
    const std::string_view token = text.substr(at, end - at);
    result += token;
    if (isNumber && token.size() >= 19 && token.find_first_not_of(digits) == token.npos) {
      result += "e0";
    }
    at += token.size();
  }
  return result;
}

Value withLongIntegersAsDoubles(const Value& value) {
  constexpr double smallestLong = 1e18;
  if (value.isArray()) {
    Array array;
    for (const Value& element : value.array())
      array.append(withLongIntegersAsDoubles(element));
    return array;
  }
  if (value.isDictionary()) {
    Dictionary dictionary;
    for (const auto& entry : value.dictionary()) {
      dictionary.set(entry.key(), withLongIntegersAsDoubles(entry.value));
    }
    return dictionary;
  }
  const bool isInteger =
      value.kind() == Value::Kind::signedInteger || value.kind() == Value::Kind::unsignedInteger;
  if (isInteger && std::abs(value.floating()) >= smallestLong) return value.floating();
  return value;
}

std::optional<std::string> changedByARoundTrip(const Value& value) {
  const auto written = JSON::write(value);
  if (!written) return "cannot be written again: " + written.error().localizedDescription();
  const auto readAgain = JSON::read(*written);
  if (!readAgain) return "its written form is refused: " + readAgain.error().localizedDescription();
  if (!areIdentical(value, *readAgain)) return "changes when written and read again";
  if (JSON::toCompactString(value).find_first_of("\n\r") != std::string::npos) {
    return "is described on more than one line";
  }
  return std::nullopt;
}

std::optional<std::string> judgeRefusal(const Error& error, const dom::element* theirs) {
  if (error.domain != JSONErrorDomain || error.localizedDescription().empty()) {
    return "is refused without a proper error";
  }
  if (!theirs) return std::nullopt;
  const bool isContainer = theirs->is_array() || theirs->is_object();
  const auto code = static_cast<JSONErrorCode>(error.code);
  if (code == JSONErrorCode::bareValue && !isContainer) return std::nullopt;
  if (code == JSONErrorCode::tooDeep) return std::nullopt;
  return "is refused by ours alone: " + error.localizedDescription();
}

}  // namespace

std::optional<std::string> disagreementOnJSON(std::string_view text) {
  const auto ours = JSON::read(Data(std::string(text)));

  constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  dom::parser parser;
  dom::element theirs;
  if (!parser.parse(simdjson::padded_string(text)).get(theirs)) {
    if (!ours) return judgeRefusal(ours.error(), &theirs);
    if (!areIdentical(*ours, valueOf(theirs))) return "is read as another value";
    return changedByARoundTrip(*ours);
  }
  if (!ours) return judgeRefusal(ours.error(), nullptr);
  const std::string eased = withLongIntegersAsDoubles(text);
  if (parser.parse(simdjson::padded_string(eased)).get(theirs)) return "is taken by ours alone";
  if (!areIdentical(withLongIntegersAsDoubles(*ours), valueOf(theirs))) {
    return "is read as another value";
  }
  return changedByARoundTrip(*ours);
}

}  // namespace kiv::fuzz
