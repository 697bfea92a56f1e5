#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"

/// How a pass ended.
enum class KivResourcePassOutcome {
  done,  ///< Every selected resource was dealt with. Some may have failed: see the entries.
  /// No item of the configuration makes a resource that the pass selects. Nothing was dropped.
  nothingSelected,
  refused,  ///< Another pass was running, and continues.
  stopped,  ///< By stopLoading().
  /// The manager was destroyed, or the host reset the count of its downloads and started another
  /// pass, before the downloads of this one had ended.
  abandoned,
};

/// What became of one file of a resource.
enum class KivResourcePassFileOutcome {
  local,       ///< It was packaged or stored already, and was not downloaded.
  downloaded,  ///< And stored.
  failed,      ///< It was not downloaded or not stored; `error` says why.
  notFound,    ///< It was stored, but is not found under its name.
  notEnded,    ///< Its download was cancelled with the pass.
};

/// A file that a resource lacked when the pass came to it.
struct KivResourcePassFile {
  std::string link;  ///< As in the configuration.
  KivResourcePassFileOutcome outcome = KivResourcePassFileOutcome::notEnded;
  /// Of a failed file; nothing if the download ended with neither data nor error.
  std::optional<kiv::Error> error;
  /// The HTTP status of the download, or 0 if no server answered.
  std::int64_t statusCode = 0;
  /// Bytes, time, and the failed tries with their servers and reasons. Empty if there was no
  /// download, if no request could be made, or if a loader of the host's does not use the client.
  KivRESTServiceMetrics metrics;
};

/// What became of one item of the configuration.
enum class KivResourcePassEntryOutcome {
  added,      ///< Loaded.
  replaced,   ///< Loaded, in place of another version.
  unchanged,  ///< This version or a newer one was loaded before.
  /// Loaded, but not in the registry when the pass ended: another item of the same identifier,
  /// another process or the host replaced or removed it.
  removed,
  failed,      ///< A file is missing, or the pass was refused. See `error` and `files`.
  incomplete,  ///< Not loaded, although nothing failed. See `reason`. Observers are not told.
  notEnded,    ///< Not loaded when the pass was stopped or abandoned.
  leftOut,     ///< The pass selects another identifier or type.
  invalid,     ///< The item makes no resource.
};

/// One item of the configuration.
struct KivResourcePassEntry {
  std::size_t item = 0;    ///< Its place in "items", counted from 0.
  std::string resourceID;  ///< This and the next three are empty if the item does not have them.
  std::string name;
  std::string type;
  std::string engine;
  bool isEngineKnown = false;  ///< If not, a valid item is a resource without files.
  std::uint64_t updated = 0;   ///< The version stamp; 0 for an invalid item.
  KivResourcePassEntryOutcome outcome = KivResourcePassEntryOutcome::invalid;
  /// The stamp of another version: the one that was replaced, the loaded one of an unchanged
  /// resource, or the newest in the registry for a removed one. Otherwise nothing.
  std::optional<std::uint64_t> otherVersion;
  /// Why, in words, for the outcomes removed, incomplete, leftOut and invalid; otherwise empty.
  std::string reason;
  /// Of a failed resource: the first error of which observers were told. It may be nothing, as for
  /// observers.
  std::optional<kiv::Error> error;
  std::vector<KivResourcePassFile> files;  ///< In the order in which they were asked for.
};

/// A resource that an update pass removed from the registry. Its files stay on the disk.
struct KivResourcePassDrop {
  std::string resourceID;
  std::string name;
  std::string type;
  std::uint64_t updated = 0;
};

/// How a pass went; see KivResourceManager::startPass(). A value without ties to the manager, which
/// may be copied and used on any thread.
struct KIV_EXPORT KivResourcePassReport {
  std::uint64_t passID = 0;
  KivResourcePassOutcome outcome = KivResourcePassOutcome::done;
  /// One for each item of the configuration, in its order; none if it has no array "items".
  std::vector<KivResourcePassEntry> entries;
  std::vector<KivResourcePassDrop> dropped;  ///< By an update pass, in the registry's order.
  /// Of all bodies of the pass. A body that several resources shared counts for each of them.
  std::int64_t bytes = 0;
  std::chrono::microseconds duration{0};  ///< From the start of the pass to its end.
  /// Why the list of loaded resources is not saved, as KivResourceManager::lastSaveError() said
  /// when the pass ended.
  std::optional<kiv::Error> saveError;
  /// True if memory ran out while the report was made: something is missing in it. The pass itself
  /// and the outcome are not affected.
  bool isIncomplete = false;

  /// The number of entries with that outcome.
  [[nodiscard]] std::size_t count(KivResourcePassEntryOutcome entryOutcome) const noexcept;
};

/// Receives the report of a pass.
using KivResourcePassReportHandler = std::function<void(const KivResourcePassReport& report)>;

namespace kiv {

/// The enumerator's name, such as "nothingSelected", for logs.
KIV_EXPORT std::string_view nameOf(KivResourcePassOutcome outcome) noexcept;
KIV_EXPORT std::string_view nameOf(KivResourcePassFileOutcome outcome) noexcept;
KIV_EXPORT std::string_view nameOf(KivResourcePassEntryOutcome outcome) noexcept;

}  // namespace kiv
