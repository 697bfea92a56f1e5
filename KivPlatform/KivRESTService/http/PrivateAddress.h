#pragma once

#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

// An address that the public Internet does not route is private here: one of the loopback
// interface, of a private network (RFC 1918, RFC 4193) or of a provider's own (RFC 6598), a
// link-local one, an unspecified one and one for many (multicast, broadcast). An IPv6 address that
// stands for an IPv4 address, such as a mapped one, is what that is.

/// True for an IPv4 or IPv6 address in numbers that is not private; false for any other text.
KIV_EXPORT bool isPublicAddress(std::string_view address) noexcept;

/// True where the host of a URL is a private address, in brackets or not, or a name that always
/// stands for the loopback interface: "localhost", and what ends with ".localhost".
KIV_EXPORT bool isPrivateHost(std::string_view host) noexcept;

}  // namespace kiv
