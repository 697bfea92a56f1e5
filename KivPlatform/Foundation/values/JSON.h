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
  malformed = 1,   ///< The text is not JSON, or holds text that is not UTF-8.
  tooDeep = 2,     ///< Arrays and dictionaries nest deeper than JSON::deepestNesting.
  bareValue = 3,   ///< The top level is neither an array nor an object.
  unwritable = 4,  ///< A value has no JSON form: a number that is not finite, a broken string.
  tooLarge = 5,    ///< The text is larger than the reader takes.
};

/// Reads and writes JSON text. May be used from any thread, also one with a small stack: nesting
/// does not recurse.
class KIV_EXPORT JSON {
 public:
  /// How deep arrays and dictionaries may nest, both when read and when written.
  static constexpr int deepestNesting = 1000;

  /// The value of the text, whose top level must be an array or an object. If the text is not valid
  /// JSON, the error's message has the line and column. Of an object's equal keys the last one
  /// counts. Integers from -2^63 to 2^64-1 stay exact; larger ones become doubles. A byte order
  /// mark before the text is ignored.
  static Result<Value> read(const Data& text);
  static Result<Value> read(std::string_view text);

  /// The indented text of the value, ending in a line feed. A floating number keeps a fraction or
  /// an exponent, so that it reads back as one.
  static Result<Data> write(const Value& value);

  /// The same on one line, for a log or a line protocol. What JSON cannot hold (a number that is
  /// not finite, a string that is not UTF-8, nesting that is too deep) becomes null.
  static std::string toCompactString(const Value& value);
};

}  // namespace kiv
