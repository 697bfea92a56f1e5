#include "KivResource/passes/KivResourcePassReport.h"

#include <algorithm>

std::size_t KivResourcePassReport::count(KivResourcePassEntryOutcome entryOutcome) const noexcept {
  return static_cast<std::size_t>(std::count_if(
      entries.begin(), entries.end(),
      [&](const KivResourcePassEntry& entry) { return entry.outcome == entryOutcome; }));
}

namespace kiv {

std::string_view nameOf(KivResourcePassOutcome outcome) noexcept {
  switch (outcome) {
    case KivResourcePassOutcome::done:
      return "done";
    case KivResourcePassOutcome::nothingSelected:
      return "nothingSelected";
    case KivResourcePassOutcome::refused:
      return "refused";
    case KivResourcePassOutcome::stopped:
      return "stopped";
    case KivResourcePassOutcome::abandoned:
      return "abandoned";
  }
  return {};
}

std::string_view nameOf(KivResourcePassFileOutcome outcome) noexcept {
  switch (outcome) {
    case KivResourcePassFileOutcome::local:
      return "local";
    case KivResourcePassFileOutcome::downloaded:
      return "downloaded";
    case KivResourcePassFileOutcome::failed:
      return "failed";
    case KivResourcePassFileOutcome::notFound:
      return "notFound";
    case KivResourcePassFileOutcome::notEnded:
      return "notEnded";
  }
  return {};
}

std::string_view nameOf(KivResourcePassEntryOutcome outcome) noexcept {
  switch (outcome) {
    case KivResourcePassEntryOutcome::added:
      return "added";
    case KivResourcePassEntryOutcome::replaced:
      return "replaced";
    case KivResourcePassEntryOutcome::unchanged:
      return "unchanged";
    case KivResourcePassEntryOutcome::removed:
      return "removed";
    case KivResourcePassEntryOutcome::failed:
      return "failed";
    case KivResourcePassEntryOutcome::incomplete:
      return "incomplete";
    case KivResourcePassEntryOutcome::notEnded:
      return "notEnded";
    case KivResourcePassEntryOutcome::leftOut:
      return "leftOut";
    case KivResourcePassEntryOutcome::invalid:
      return "invalid";
  }
  return {};
}

}  // namespace kiv
