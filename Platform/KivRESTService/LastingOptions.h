#pragma once

#include "Platform/KivRESTService/CurlHandles.h"
#include "Platform/KivRESTService/KivRESTServiceSettings.h"

namespace kiv {

/// A new handle with everything set that is the same for all requests of a client, whatever they
/// ask for; empty where memory has run out. What a single request needs is set by the transfer,
/// which finds the handle as the one before it has left it.
EasyHandle makeEasyHandle(const KivRESTServiceSettings& settings);

}  // namespace kiv
