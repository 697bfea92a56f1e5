#pragma once

#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// True where the text is an entity tag as RFC 9110 has it (section 8.8.3): characters within one
/// pair of quotes, none of which is a quote, a blank or a control character. A weak one begins with
/// "W/". What is none must not be sent back to a server: it may hold a line end, and with it
/// headers of its own.
KIV_EXPORT bool isEntityTag(std::string_view text) noexcept;
/// The same for one that is not weak: a weak tag may stand for different bytes.
KIV_EXPORT bool isStrongEntityTag(std::string_view text) noexcept;

/// True where the text has only characters that the dates of HTTP have (section 5.6.7).
KIV_EXPORT bool hasCharactersOfDate(std::string_view text) noexcept;

}  // namespace kiv
