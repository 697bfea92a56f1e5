#pragma once

#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

// Private are all addresses that are not routed on the public Internet: loopback, private networks
// (RFC 1918, RFC 4193), shared address space (RFC 6598), link-local, unspecified, multicast and
// broadcast. An IPv6 address that embeds an IPv4 address is judged by that.

/// True for a numeric IPv4 or IPv6 address that is not private; false for any other text.
KIV_EXPORT bool isPublicAddress(std::string_view address) noexcept;

/// True if the host of a URL is a private address, in brackets or not, or "localhost" or a name
/// that ends with ".localhost".
KIV_EXPORT bool isPrivateHost(std::string_view host) noexcept;

}  // namespace kiv
