#pragma once

#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

/// Keeps the redirects of one attempt out of private networks, unless the server itself is in one
/// or the settings allow it (a defence against server-side request forgery).
///
/// It checks the address of the connection, not that of an earlier DNS look-up: before a socket is
/// opened, and again before a request is sent, even on a reused connection. With a proxy, only the
/// host name can be checked.
class RedirectGuard {
 public:
  /// `settings` must outlive the guard.
  explicit RedirectGuard(const TransferSettings& settings) noexcept : settings_(settings) {}
  RedirectGuard(const RedirectGuard&) = delete;
  RedirectGuard& operator=(const RedirectGuard&) = delete;

  /// Called when the server at `from`, which has just answered on the handle, redirects to
  /// `target`. Fails if the host name alone forbids it.
  Status checkRedirect(void* handle, const URL& from, const URL& target);
  /// Prepares a handle for the next request; false if that failed. The guard must not move while
  /// the handle runs.
  bool setOptions(void* handle);
  /// True once the request has a connection, with TLS.
  [[nodiscard]] bool hasConnection() const noexcept { return hasConnection_; }
  /// Fails if the last request was refused its connection.
  Status checkConnection() const;

 private:
  friend struct RedirectGuardCallbacks;

  bool setProxy(void* handle) const;
  [[nodiscard]] bool usesProxy(const URL& url) const;
  /// False if nothing may be sent to that address, which is then remembered in `refused_`.
  bool admits(const std::string& address);
  [[nodiscard]] Error errorFor(const std::string& address) const;

  const TransferSettings& settings_;
  bool isFirstRedirect_ = true;
  bool isOn_ = false;           // the attempt began at a public server
  bool checksAddress_ = false;  // the next request's address is checked
  bool hasConnection_ = false;
  std::optional<URL> from_;
  std::optional<URL> target_;  // of the next request
  std::string refused_;        // the last address that was refused
  bool hasAdmitted_ = false;   // an address was admitted
};

}  // namespace kiv
