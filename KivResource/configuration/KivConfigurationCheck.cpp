#include "KivResource/configuration/KivConfigurationCheck.h"

namespace kiv {

std::string_view nameOf(KivConfigurationOutcome outcome) noexcept {
  switch (outcome) {
    case KivConfigurationOutcome::updated:
      return "updated";
    case KivConfigurationOutcome::repeated:
      return "repeated";
    case KivConfigurationOutcome::unchanged:
      return "unchanged";
    case KivConfigurationOutcome::postponed:
      return "postponed";
    case KivConfigurationOutcome::failed:
      return "failed";
  }
  return {};
}

}  // namespace kiv
