#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivResource/passes/KivResourcePassReport.h"

/// Domain of the errors of a check; their codes are those of KivConfigurationErrorCode. Errors of
/// the transfer and of the JSON text keep their own domains.
inline constexpr std::string_view KivConfigurationErrorDomain = "kiv.KivConfiguration";

/// Why an answer of the server is no configuration. The numbers are stable; new ones are added at
/// the end.
enum class KivConfigurationErrorCode : int {
  invalidStatus = 1,  ///< The server answered with another status than 200 or 304.
  noItems = 2,        ///< The text is JSON, but no dictionary with an array "items".
  noValidItem = 3,    ///< There are items, but none of them makes a resource.
  outOfMemory = 4,    ///< There was no memory for the check or the pass.
};

/// How a check for a new configuration ended.
enum class KivConfigurationOutcome {
  updated,  ///< The configuration is another one, and a pass ran with it.
  /// The configuration is the same, and a pass ran with it: the first one of the updater, or one
  /// after a pass that had left something undone.
  repeated,
  unchanged,  ///< The configuration is the same, and everything in it was dealt with.
  /// The check waits, since a pass of the host's runs. It goes on when that has ended, and is
  /// reported again then.
  postponed,
  failed,  ///< No usable configuration came; `error` says why. The last good one is kept.
};

/// What came of a check of KivConfigurationUpdater. A value that may be copied and used on any
/// thread.
struct KIV_EXPORT KivConfigurationCheck {
  KivConfigurationOutcome outcome = KivConfigurationOutcome::failed;
  /// Why a check failed; otherwise nothing.
  std::optional<kiv::Error> error;
  /// The status of the answer, or 0 if no server answered.
  std::int64_t statusCode = 0;
  /// The URL that answered, the updater's or a mirror; nothing if none did.
  std::optional<kiv::URL> server;
  /// How the pass went that the check ran. A failed check has run one if the saved configuration
  /// was used.
  std::optional<KivResourcePassReport> report;
  /// Why the configuration is not saved; nothing if it is, or if it was not to be saved. A later
  /// start without a network then uses an older one, or none.
  std::optional<kiv::Error> saveError;
  /// The time until the next check; nothing if none is planned.
  std::optional<std::chrono::milliseconds> nextCheck;
};

namespace kiv {

/// The enumerator's name, such as "unchanged", for logs.
KIV_EXPORT std::string_view nameOf(KivConfigurationOutcome outcome) noexcept;

}  // namespace kiv
