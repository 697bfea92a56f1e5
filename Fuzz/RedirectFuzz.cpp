// Follows any text as a chain of redirects: the first line is the URL of the attempt, each further
// line the Location of a response. Checks each step against the rules, and our judgement of each
// host against the system's parser of addresses.

#include <cstddef>
#include <netdb.h>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <variant>

#include "Fuzz/Require.h"
#include "KivPlatform/KivRESTService/curl/CurlHandles.h"
#include "KivPlatform/KivRESTService/curl/CurlLibrary.h"
#include "KivPlatform/KivRESTService/curl/RedirectGuard.h"
#include "KivPlatform/KivRESTService/http/Redirect.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

using kiv::URL;
using kiv::fuzz::require;

/// Removes the first line from the text and returns it without its end.
std::string_view takeLine(std::string_view& text) {
  const auto line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

/// The first byte of the IPv4 address that the system's parser, without DNS, reads in the host;
/// nothing if it reads none.
std::optional<unsigned> firstByteOfAddress(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_flags = AI_NUMERICHOST;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) return std::nullopt;
  const auto* const address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
  const unsigned first = ntohl(address->sin_addr.s_addr) >> 24;
  freeaddrinfo(found);
  return first;
}

/// Only targets of redirects: the first URL is the host application's choice.
void checkHost(const URL& url) {
  const auto first = firstByteOfAddress(url.host());
  if (!first) return;
  const bool isOnlyForThisMachine = *first == 0 || *first == 10 || *first == 127;
  require(!isOnlyForThisMachine || kiv::isPrivateHost(url.host()),
          "what the system takes for a private address is one");
  require(!kiv::isPublicAddress(url.host()) || !kiv::isPrivateHost(url.host()),
          "no address is public and private");
}

void checkTarget(const URL& from, const URL& target) {
  require(target.scheme() == "http" || target.scheme() == "https", "only to http and https");
  require(from.scheme() != "https" || target.scheme() == "https", "never from https to http");
  require(!target.host().empty(), "to a host");
  require(kiv::validateURL(target).empty(), "to what can be loaded");
  const auto again = URL::fromString(target.absoluteString());
  require(again && again->host() == target.host() && again->scheme() == target.scheme(),
          "its text is the same URL");
  checkHost(target);
}

/// The next URL of the chain; nothing if the redirect is refused.
std::optional<URL> follow(kiv::RedirectGuard& guard, void* handle, bool beganInPrivate,
                          const URL& from, std::string_view location) {
  auto target = kiv::redirectTarget(from, location);
  if (!target) {
    require(!target.error().localizedDescription().empty(), "a refusal says why");
    return std::nullopt;
  }
  const URL& next = *target;
  checkTarget(from, next);
  const auto admitted = guard.checkRedirect(handle, from, next);
  const bool leadsIn = !beganInPrivate && kiv::isPrivateHost(next.host());
  require(!admitted == leadsIn, "into a private network from one alone");
  require(guard.setOptions(handle), "the next request can be prepared");
  require(bool(guard.checkConnection()), "nothing is refused that was not asked");
  return admitted ? std::optional(next) : std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const bool isReady = kiv::prepareCurlLibrary();
  static const kiv::TransferSettings settings = [] {
    kiv::TransferSettings withoutProxy;
    withoutProxy.proxy = "";
    return withoutProxy;
  }();
  static const kiv::EasyHandle handle = kiv::makeEasyHandle();
  require(isReady && handle, "libcurl is there");

  std::string_view text = kiv::fuzz::textOf(bytes, size);
  auto url = URL::fromString(takeLine(text));
  if (!url || !kiv::validateURL(*url).empty()) return 0;
  const bool beganInPrivate = kiv::isPrivateHost(url->host());
  kiv::RedirectGuard guard(settings);
  for (int step = 0; url && !text.empty() && step < settings.mostRedirects; ++step)
    url = follow(guard, handle.get(), beganInPrivate, *url, takeLine(text));
  return 0;
}
