// A server on the Internet must not be able to make this computer send requests to its own network
// (server-side request forgery). Checking the host name is not enough, since its address may change
// between two look-ups, so the guard checks the address that libcurl connects to.

#include "KivPlatform/KivRESTService/curl/RedirectGuard.h"

#include <array>
#include <cstdlib>
#include <netdb.h>
#include <sys/socket.h>
#include <utility>

#include <curl/curl.h>

#include "KivPlatform/KivRESTService/curl/CurlOptions.h"
#include "KivPlatform/KivRESTService/http/Redirect.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"

namespace kiv {

namespace {

/// True if the environment sets a proxy for the scheme, by libcurl's rules.
bool environmentHasProxy(const std::string& scheme) {
  constexpr auto isSet = [](const char* name) {
    const char* const value = std::getenv(name);
    return value && *value;
  };
  // Not HTTP_PROXY: in a CGI program, a header of the request would set it.
  const bool forScheme =
      scheme == "http" ? isSet("http_proxy") : isSet("https_proxy") || isSet("HTTPS_PROXY");
  return forScheme || isSet("all_proxy") || isSet("ALL_PROXY");
}

std::string textOf(const curl_sockaddr& address) {
  std::array<char, NI_MAXHOST> text{};
  const int failed = getnameinfo(&address.addr, address.addrlen, text.data(), text.size(), nullptr,
                                 0, NI_NUMERICHOST);
  return failed ? std::string() : std::string(text.data());
}

std::string addressOfServer(void* handle) {
  const char* address = nullptr;
  curl_easy_getinfo(handle, CURLINFO_PRIMARY_IP, &address);
  return address ? address : "";
}

}  // namespace

/// libcurl's callbacks, with its types.
struct RedirectGuardCallbacks {
  /// If this refuses one address of a host, libcurl still tries the others.
  static curl_socket_t openSocket(void* guard, curlsocktype, curl_sockaddr* address) {
    if (!static_cast<RedirectGuard*>(guard)->admits(textOf(*address))) return CURL_SOCKET_BAD;
    return ::socket(address->family, address->socktype, address->protocol);
  }

  /// Called for every request, even on a reused connection.
  static int beginRequest(void* guard, char* address, char*, int, int) {
    auto& self = *static_cast<RedirectGuard*>(guard);
    self.hasConnection_ = true;
    if (!self.checksAddress_ || self.admits(address)) return CURL_PREREQFUNC_OK;
    self.hasAdmitted_ = false;
    return CURL_PREREQFUNC_ABORT;
  }
};

Status RedirectGuard::checkRedirect(void* handle, const URL& from, const URL& target) {
  if (settings_.followsRedirectsToPrivateAddresses) return {};
  if (std::exchange(isFirstRedirect_, false)) {
    const bool isPrivate =
        isPrivateHost(from.host()) || (!usesProxy(from) && isPrivateHost(addressOfServer(handle)));
    isOn_ = !isPrivate;
  }
  from_ = from;
  target_ = target;
  if (isOn_ && isPrivateHost(target.host())) return errorFor(target.host());
  return {};
}

bool RedirectGuard::setOptions(void* handle) {
  refused_.clear();
  hasAdmitted_ = false;
  hasConnection_ = false;
  checksAddress_ = isOn_ && !usesProxy(*target_);
  using Callbacks = RedirectGuardCallbacks;
  constexpr curl_opensocket_callback noSocket = nullptr;
  return setOption(handle, CURLOPT_OPENSOCKETFUNCTION,
                   checksAddress_ ? &Callbacks::openSocket : noSocket) &&
         setOption(handle, CURLOPT_OPENSOCKETDATA, this) &&
         setOption(handle, CURLOPT_PREREQFUNCTION, &Callbacks::beginRequest) &&
         setOption(handle, CURLOPT_PREREQDATA, this) && setProxy(handle);
}

/// Makes libcurl use the proxy or the direct connection, as was assumed for the check. Otherwise it
/// would connect to a host in "no_proxy" without a check of the address.
bool RedirectGuard::setProxy(void* handle) const {
  if (settings_.proxy) return true;  // set by setLastingOptions()
  constexpr const char* asTheEnvironmentSays = nullptr;
  const bool usesOne = isOn_ && usesProxy(*target_);
  return setOption(handle, CURLOPT_PROXY, isOn_ && !usesOne ? "" : asTheEnvironmentSays) &&
         setOption(handle, CURLOPT_NOPROXY, usesOne ? "" : asTheEnvironmentSays);
}

bool RedirectGuard::usesProxy(const URL& url) const {
  return settings_.proxy ? !settings_.proxy->empty() : environmentHasProxy(url.scheme());
}

bool RedirectGuard::admits(const std::string& address) {
  if (isPublicAddress(address)) return hasAdmitted_ = true;
  refused_ = address;
  return false;
}

Status RedirectGuard::checkConnection() const {
  if (refused_.empty() || hasAdmitted_) return {};
  return errorFor(refused_);
}

Error RedirectGuard::errorFor(const std::string& address) const {
  std::string what = "the server redirects to \"" + displayedURL(target_->absoluteString());
  what += "\", which is in a private network (" + address + "), and the setting ";
  what += "followsRedirectsToPrivateAddresses does not allow that";
  return transferError(KivRESTServiceErrorCode::redirectToPrivateAddress, from_->absoluteString(),
                       what);
}

}  // namespace kiv
