#pragma once

#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

/// Sets everything that is the same for all requests of a client, whatever they ask for; false
/// where libcurl refuses an option. What a single request needs is set by the transfer, which finds
/// the handle as the one before it has left it.
bool setLastingOptions(void* easyHandle, const KivRESTServiceSettings& settings);

}  // namespace kiv
