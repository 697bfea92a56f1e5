#pragma once

#include <string_view>

/// Domain of maintenance's own errors. Errors of the disk keep their domain.
inline constexpr std::string_view KivResourceMaintenanceErrorDomain =
    "kiv.KivResource.KivResourceMaintenance";

enum class KivResourceMaintenanceErrorCode : int {
  downloadsInFlight = 120,   ///< A pass is running; files that it has stored are in no list yet.
  resourcesElsewhere = 121,  ///< A link leads from the resources directory out of the root.
  listInDoubt = 122,         ///< A saved list that cannot be read may name files that are in use.
};
