#pragma once

#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

/// Keeps the redirects of one try out of private networks, unless its server is in one itself or
/// the settings allow it.
///
/// What counts is the address to which a connection is made, not the one that a look-up before it
/// gave: it is looked at before a socket is opened, and once more before a request is sent, also on
/// a connection that was open already. Where a proxy makes the connection, only the name of the
/// host can be looked at.
class RedirectGuard {
 public:
  /// `settings` must outlive the guard.
  explicit RedirectGuard(const KivRESTServiceSettings& settings) noexcept : settings_(settings) {}
  RedirectGuard(const RedirectGuard&) = delete;
  RedirectGuard& operator=(const RedirectGuard&) = delete;

  /// The server at `from`, which has just answered on the handle, redirects to `target`. Why it is
  /// not to be followed, as far as its host tells; otherwise nothing.
  std::optional<Error> noteRedirect(void* handle, const URL& from, const URL& target);
  /// Prepares a handle for the next request; false where that failed. The guard must stay where it
  /// is while the handle runs.
  bool setOptions(void* handle);
  /// Why the last request was refused its connection; nothing where it was not.
  [[nodiscard]] std::optional<Error> refusal() const;

 private:
  friend struct RedirectGuardCallbacks;

  bool setProxy(void* handle) const;
  [[nodiscard]] bool usesProxy(const URL& url) const;
  /// False where nothing may be sent to that address, which is noted.
  bool admits(const std::string& address);
  [[nodiscard]] Error errorFor(const std::string& address) const;

  const KivRESTServiceSettings& settings_;
  bool isFirstRedirect_ = true;
  bool isOn_ = false;  // the try began at a public server
  std::optional<URL> from_;
  std::optional<URL> target_;  // of the next request
  std::string refused_;        // an address
  bool hasAdmitted_ = false;   // another one
};

}  // namespace kiv
