#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

// Text from a server may contain characters that deceive a reader: terminal escapes, line ends, and
// bidirectional controls, which make one name look like another.

namespace kiv {

/// The length in bytes of the control character at the beginning of the UTF-8 text; 0 if there is
/// none. Control characters are U+0000 to U+001F, U+007F to U+009F, the line and paragraph
/// separators U+2028 and U+2029, and the bidirectional controls U+061C, U+200E, U+200F, U+202A to
/// U+202E and U+2066 to U+2069.
KIV_EXPORT std::size_t controlCharacterLength(std::string_view text) noexcept;

/// The text with each byte of a control character written as "\xHH".
KIV_EXPORT std::string escapingControlCharacters(std::string_view text);

/// Appends each of the bytes as "\xHH".
KIV_EXPORT void appendEscaped(std::string& out, std::string_view bytes);

}  // namespace kiv
