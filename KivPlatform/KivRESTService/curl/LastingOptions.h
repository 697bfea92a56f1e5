#pragma once

#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

/// Sets the options that are the same for all requests of a client; false if libcurl rejects one.
/// Those of a single request are set by Transfer, on handles that are reused.
bool setLastingOptions(void* easyHandle, const KivRESTServiceSettings& settings);

}  // namespace kiv
