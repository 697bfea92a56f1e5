#pragma once

#include <string_view>
#include <variant>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/URL.h"

namespace kiv {

/// Why the URL cannot be loaded, as a clause that fits after a colon; empty where it can: it has a
/// host, and its scheme is http or https.
KIV_EXPORT std::string_view validateURL(const URL& url) noexcept;

/// True for the statuses that send a client elsewhere for the same file.
KIV_EXPORT bool isRedirect(int status) noexcept;

/// Where a response with that Location leads from the URL that it was given for, or why it may not
/// be followed there: never to a scheme other than http and https, never from https to http. See
/// RedirectGuard for the addresses to which it may not lead.
KIV_EXPORT std::variant<URL, Error> redirectTarget(const URL& from, std::string_view location);

}  // namespace kiv
