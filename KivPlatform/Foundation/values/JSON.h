#pragma once

#include <optional>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
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

/// Reads and writes JSON text. May be used from any thread, also one with a small stack: what nests
/// takes none of it.
class KIV_EXPORT JSON {
 public:
  /// How deep arrays and dictionaries may nest, both when read and when written.
  static constexpr int deepestNesting = 1000;

  /// The value of the text, whose top level must be an array or an object; nothing and an error
  /// that names line and column where the text is no valid JSON. Of an object's equal keys the
  /// last one counts. Integers from -2^63 to 2^64-1 stay exact; larger ones become doubles. A
  /// byte order mark before the text is passed over.
  static OptionalValue read(const Data& text, std::optional<Error>* error = nullptr);
  static OptionalValue read(std::string_view text, std::optional<Error>* error = nullptr);

  /// The indented text of the value, ending in a line feed; nothing and an error if it has
  /// none. A floating number keeps a fraction or an exponent, so that it reads back as one.
  static std::optional<Data> write(const Value& value, std::optional<Error>* error = nullptr);

  /// The same on one line, for a log or a line protocol. What JSON cannot hold (a number that is
  /// not finite, a string that is not UTF-8, nesting that is too deep) becomes null.
  static std::string toCompactString(const Value& value);
};

}  // namespace kiv
