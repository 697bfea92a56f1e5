#pragma once

#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/URL.h"

namespace kiv {

/// Why the URL cannot be loaded, as a clause for a message; empty if it can: it has a host, and the
/// scheme http or https.
KIV_EXPORT std::string_view validateURL(const URL& url) noexcept;

/// True for the redirect statuses that lead to the same file.
KIV_EXPORT bool isRedirect(int status) noexcept;

/// Resolves a Location against the URL of its request. Fails if it may not be followed: to another
/// scheme than http and https, or from https to http. RedirectGuard checks the addresses.
KIV_EXPORT Result<URL> redirectTarget(const URL& from, std::string_view location);

}  // namespace kiv
