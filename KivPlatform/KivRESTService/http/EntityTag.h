#pragma once

#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// True if the text is an entity tag (RFC 9110, 8.8.3), weak or strong. Anything else must not be
/// sent back to a server: it could hold a line end, and so inject headers.
KIV_EXPORT bool isEntityTag(std::string_view text) noexcept;
/// True if it is a strong entity tag. A weak one may stand for different bytes.
KIV_EXPORT bool isStrongEntityTag(std::string_view text) noexcept;

/// True if the text has only characters that an HTTP-date may have (RFC 9110, 5.6.7).
KIV_EXPORT bool hasCharactersOfDate(std::string_view text) noexcept;

}  // namespace kiv
