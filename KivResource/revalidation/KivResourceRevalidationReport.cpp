#include "KivResource/revalidation/KivResourceRevalidationReport.h"

#include <algorithm>

std::size_t KivResourceRevalidationReport::count(
    KivResourceRevalidationFileOutcome fileOutcome) const noexcept {
  return static_cast<std::size_t>(std::count_if(
      files.begin(), files.end(),
      [&](const KivResourceRevalidationFile& file) { return file.outcome == fileOutcome; }));
}

namespace kiv {

std::string_view nameOf(KivResourceRevalidationOutcome outcome) noexcept {
  switch (outcome) {
    case KivResourceRevalidationOutcome::done:
      return "done";
    case KivResourceRevalidationOutcome::refused:
      return "refused";
    case KivResourceRevalidationOutcome::stopped:
      return "stopped";
    case KivResourceRevalidationOutcome::abandoned:
      return "abandoned";
  }
  return {};
}

std::string_view nameOf(KivResourceRevalidationFileOutcome outcome) noexcept {
  switch (outcome) {
    case KivResourceRevalidationFileOutcome::unchanged:
      return "unchanged";
    case KivResourceRevalidationFileOutcome::replaced:
      return "replaced";
    case KivResourceRevalidationFileOutcome::failed:
      return "failed";
    case KivResourceRevalidationFileOutcome::unknown:
      return "unknown";
    case KivResourceRevalidationFileOutcome::removed:
      return "removed";
    case KivResourceRevalidationFileOutcome::notEnded:
      return "notEnded";
  }
  return {};
}

}  // namespace kiv
