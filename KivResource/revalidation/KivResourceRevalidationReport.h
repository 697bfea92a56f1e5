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

/// Which stored files KivResourceManager::revalidate() asks about: those of the loaded resources
/// that have this identifier and this type.
struct KivResourceRevalidation {
  std::optional<std::string> resourceID = {};  ///< Nothing means all.
  std::optional<std::string> type = {};        ///< Nothing means all.
};

/// How a revalidation ended.
enum class KivResourceRevalidationOutcome {
  done,       ///< Every selected file was dealt with. Some may have failed: see the files.
  refused,    ///< Another revalidation was running, and continues. Nothing was asked.
  stopped,    ///< By stopLoading(), or because requests were cancelled otherwise.
  abandoned,  ///< The manager was destroyed.
};

/// What became of one file.
enum class KivResourceRevalidationFileOutcome {
  unchanged,  ///< A server has the same contents.
  replaced,   ///< A server had other contents, which are stored now.
  failed,     ///< No server gave an answer that could be used, or it could not be stored. The file
              ///< stays as it was; `error` says why.
  unknown,    ///< It was not asked about: it is packaged or lies elsewhere on the disk, or its link
              ///< is not known.
  removed,    ///< It was not there, or another file took its place, or no loaded resource used it
              ///< when the answer came. What came was dropped.
  notEnded,   ///< Its request was cancelled.
};

/// A file that loaded resources use.
struct KivResourceRevalidationFile {
  std::string path;
  std::string link;                      ///< As in the configuration; empty if it is not known.
  std::vector<std::string> resourceIDs;  ///< Of the selected resources, in their order.
  KivResourceRevalidationFileOutcome outcome = KivResourceRevalidationFileOutcome::notEnded;
  /// Of a failed file; nothing if the request ended with neither data nor error.
  std::optional<kiv::Error> error;
  /// The HTTP status, or 0 if no server answered or none was asked.
  std::int64_t statusCode = 0;
  /// Bytes, time, and the failed tries with their servers and reasons; see KivResourcePassFile.
  KivRESTServiceMetrics metrics;
};

/// How a revalidation went; see KivResourceManager::revalidate(). A value without ties to the
/// manager, which may be copied and used on any thread.
struct KIV_EXPORT KivResourceRevalidationReport {
  KivResourceRevalidationOutcome outcome = KivResourceRevalidationOutcome::done;
  /// Each file once, in the order of the registry.
  std::vector<KivResourceRevalidationFile> files;
  std::int64_t bytes = 0;                 ///< Of all bodies.
  std::chrono::microseconds duration{0};  ///< From the start to the end.
  /// True if memory ran out: something is missing in the report.
  bool isIncomplete = false;

  /// The number of files with that outcome.
  [[nodiscard]] std::size_t count(KivResourceRevalidationFileOutcome fileOutcome) const noexcept;
};

/// Receives the report of a revalidation.
using KivResourceRevalidationHandler =
    std::function<void(const KivResourceRevalidationReport& report)>;

namespace kiv {

/// The enumerator's name, such as "notEnded", for logs.
KIV_EXPORT std::string_view nameOf(KivResourceRevalidationOutcome outcome) noexcept;
KIV_EXPORT std::string_view nameOf(KivResourceRevalidationFileOutcome outcome) noexcept;

}  // namespace kiv
