#pragma once

#include <string_view>
#include <variant>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/URL.h"

namespace kiv {

/// Why the URL cannot be loaded, as a clause for a message; empty if it can: it has a host, and the
/// scheme http or https.
KIV_EXPORT std::string_view validateURL(const URL& url) noexcept;

/// True for the redirect statuses that lead to the same file.
KIV_EXPORT bool isRedirect(int status) noexcept;

/// Resolves a Location against the URL of its request, or says why it may not be followed: other
/// schemes than http and https, and https to http. RedirectGuard checks the addresses.
KIV_EXPORT std::variant<URL, Error> redirectTarget(const URL& from, std::string_view location);

}  // namespace kiv
