#pragma once

#include <string_view>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/URL.h"

namespace kiv {

/// Why the URL cannot be loaded, as a clause for a message; empty if it can: it has a host, and the
/// scheme http or https.
std::string_view validateURL(const URL& url) noexcept;

/// True for the redirect statuses that lead to the same file.
bool isRedirect(int status) noexcept;

/// Resolves a Location against the URL of its request. Fails if it may not be followed: to a scheme
/// other than http and https, or from https to http. Does not check the address.
Result<URL> redirectTarget(const URL& from, std::string_view location);

// Private addresses are those that are not routed on the public Internet: loopback, private
// networks (RFC 1918, RFC 4193), shared address space (RFC 6598), link-local, unspecified,
// multicast and broadcast. An IPv6 address that embeds an IPv4 address counts as that.

/// True for a numeric IPv4 or IPv6 address that is not private; false for any other text.
bool isPublicAddress(std::string_view address) noexcept;

/// True if the host of a URL is a private address, in brackets or not, or "localhost" or a name
/// that ends with ".localhost".
bool isPrivateHost(std::string_view host) noexcept;

}  // namespace kiv
