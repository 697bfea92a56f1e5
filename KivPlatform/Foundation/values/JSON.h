#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/Value.h"

namespace kiv {

/// Domain of the errors of reading and writing JSON.
inline constexpr std::string_view JSONErrorDomain = "kiv.JSON";

enum class JSONErrorCode : int {
  malformed = 1,   ///< The text is not valid JSON or not valid UTF-8.
  tooDeep = 2,     ///< Arrays and dictionaries nest deeper than JSON::deepestNesting.
  bareValue = 3,   ///< The top level is neither an array nor an object.
  unwritable = 4,  ///< A number is not finite, a string not UTF-8, or nesting too deep.
  tooLarge = 5,    ///< The text is too large for the parser or the memory.
};

/// Parses and writes JSON text. Thread-safe. Does not recurse, so deep nesting needs no large
/// stack.
class KIV_EXPORT JSON {
 public:
  /// The limit on the nesting depth of arrays and dictionaries, for parsing and writing.
  static constexpr int deepestNesting = 1000;

  /// Parses UTF-8 text whose top level is an array or an object. If the text is not valid JSON, the
  /// error's message contains the line and column (in bytes, from 1). If an object has duplicate
  /// keys, the last one wins. Integers from -2^63 to 2^64-1 are exact; others become doubles. A
  /// leading byte order mark is ignored.
  static Result<Value> read(const Data& text);
  static Result<Value> read(std::string_view text);

  /// The value as indented text that ends in a line feed. The top level must be an array or a
  /// dictionary. A floating-point number is written with a fraction or an exponent, so that it is
  /// parsed as one again. Fails with bareValue or unwritable.
  static Result<Data> write(const Value& value);

  /// The value as text on one line, without a line feed, for a log or a line protocol. The top
  /// level may be any value. Values that JSON cannot represent (a number that is not finite, a
  /// string that is not UTF-8, nesting that is too deep) become null.
  static std::string toCompactString(const Value& value);
};

}  // namespace kiv
