// Which URLs may be loaded, and where a redirect may lead (RFC 9110, 15.4). RedirectGuard checks
// addresses by these rules when libcurl connects to them.
//
// The private addresses are the blocks of the IANA special-purpose address registries (RFC 6890).
// IPv6 can embed an IPv4 address, through which a private one could be reached too.

#include "KivPlatform/KivRESTService/http/Redirect.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/socket.h>

#include "KivPlatform/Foundation/text/ASCII.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"

namespace kiv {

namespace {

/// An IPv6 address, or an IPv4 address mapped to one, in network order.
using Address = std::array<std::uint8_t, 16>;

/// The addresses that begin with the same `bits` bits.
struct Block {
  Address start;
  unsigned bits;

  [[nodiscard]] constexpr bool contains(const Address& address) const noexcept {
    for (unsigned bit = 0; bit < bits; ++bit) {
      const auto mask = static_cast<std::uint8_t>(0x80U >> (bit % 8));
      if ((start[bit / 8] & mask) != (address[bit / 8] & mask)) return false;
    }
    return true;
  }
};

constexpr unsigned mappedBits = 96;

constexpr Address mapped(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
  return {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, a, b, c, d};
}

constexpr Block ipv4(std::uint8_t a, std::uint8_t b, std::uint8_t c, unsigned bits) {
  return {mapped(a, b, c, 0), mappedBits + bits};
}

constexpr Block ipv6(std::uint8_t a, std::uint8_t b, unsigned bits) {
  return {{a, b}, bits};
}

// The benchmarking network, 198.18.0.0/15, is left out: some VPN clients resolve every name to an
// address in it, so that no server would be public.
constexpr std::array privateBlocks{
    ipv4(0, 0, 0, 8),                        // this network; 0.0.0.0 reaches the loopback interface
    ipv4(10, 0, 0, 8),                       // private
    ipv4(100, 64, 0, 10),                    // shared address space of providers
    ipv4(127, 0, 0, 8),                      // loopback
    ipv4(169, 254, 0, 16),                   // link-local
    ipv4(172, 16, 0, 12),                    // private
    ipv4(192, 0, 0, 24),                     // protocol assignments
    ipv4(192, 168, 0, 16),                   // private
    ipv4(224, 0, 0, 4),                      // multicast
    ipv4(240, 0, 0, 4),                      // reserved, and broadcast
    ipv6(0, 0, 96),                          // unspecified, loopback, and IPv4 in an obsolete form
    Block{{0, 0x64, 0xff, 0x9b, 0, 1}, 48},  // local-use NAT64
    ipv6(0xfc, 0, 7),                        // private
    ipv6(0xfe, 0x80, 10),                    // link-local
    ipv6(0xfe, 0xc0, 10),                    // site-local, which is obsolete
    ipv6(0xff, 0, 8),                        // multicast
};

constexpr Block translated{{0, 0x64, 0xff, 0x9b}, 96};  // NAT64: IPv4 at the end
constexpr Block tunnelled{{0x20, 0x02}, 16};            // 6to4: IPv4 after the prefix

std::string_view withoutBracketsAndZone(std::string_view text) noexcept {
  if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
  return text.substr(0, text.find('%'));
}

std::optional<Address> parsed(std::string_view text) noexcept {
  std::array<char, 64> terminated{};
  if (text.size() >= terminated.size()) return std::nullopt;
  std::copy(text.begin(), text.end(), terminated.begin());
  std::array<std::uint8_t, 4> four{};
  if (inet_pton(AF_INET, terminated.data(), four.data()) == 1) {
    return mapped(four[0], four[1], four[2], four[3]);
  }
  Address address{};
  if (inet_pton(AF_INET6, terminated.data(), address.data()) != 1) return std::nullopt;
  if (translated.contains(address)) {
    return mapped(address[12], address[13], address[14], address[15]);
  }
  if (tunnelled.contains(address)) return mapped(address[2], address[3], address[4], address[5]);
  return address;
}

bool isPrivate(const Address& address) noexcept {
  return std::any_of(privateBlocks.begin(), privateBlocks.end(),
                     [&](const Block& block) { return block.contains(address); });
}

bool isLocalhost(std::string_view name) noexcept {
  constexpr std::string_view localhost = "localhost";
  if (name.size() < localhost.size()) return false;
  const auto rest = name.substr(0, name.size() - localhost.size());
  const auto end = name.substr(rest.size());
  const bool ends = std::equal(end.begin(), end.end(), localhost.begin(),
                               [](char a, char b) { return ascii::lowercased(a) == b; });
  return ends && (rest.empty() || rest.ends_with('.'));
}

}  // namespace

std::string_view validateURL(const URL& url) noexcept {
  if (url.scheme().empty()) return "the URL has no scheme";
  if (url.scheme() != "http" && url.scheme() != "https") {
    return "the URL's scheme is neither http nor https";
  }
  if (url.host().empty()) return "the URL has no host";
  return {};
}

bool isRedirect(int status) noexcept {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

Result<URL> redirectTarget(const URL& from, std::string_view location) {
  using Code = KivRESTServiceErrorCode;
  const auto refusal = [&](Code code, std::string_view what) {
    return transferError(code, from.absoluteString(), what);
  };
  // Checked first, because the resolver takes "mailto:a@b" for a relative path.
  const std::string scheme = URL::schemeOf(location);
  if (!scheme.empty() && scheme != "http" && scheme != "https") {
    return refusal(Code::refusedRedirect,
                   "the server redirects to a scheme other than http and https");
  }
  if (!scheme.empty() && !URL::hasHostAfterScheme(location, scheme)) {
    return refusal(Code::malformedResponse, "the server redirects to what is no URL");
  }
  const auto target = from.resolving(location);
  if (!target) return refusal(Code::malformedResponse, "the server redirects to what is no URL");
  if (!validateURL(*target).empty()) {
    return refusal(Code::refusedRedirect, "the server redirects to a URL that cannot be loaded");
  }
  if (from.scheme() == "https" && target->scheme() == "http") {
    return refusal(Code::refusedRedirect, "the server redirects from https to http");
  }
  return *target;
}

bool isPublicAddress(std::string_view address) noexcept {
  const auto found = parsed(withoutBracketsAndZone(address));
  return found && !isPrivate(*found);
}

bool isPrivateHost(std::string_view host) noexcept {
  if (host.ends_with('.')) host.remove_suffix(1);
  if (isLocalhost(host)) return true;
  const auto address = parsed(withoutBracketsAndZone(host));
  return address && isPrivate(*address);
}

}  // namespace kiv
