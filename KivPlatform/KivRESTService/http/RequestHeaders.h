#pragma once

#include <string>
#include <vector>

#include "KivPlatform/KivRESTService/KivRESTServiceHeader.h"

namespace kiv {

/// Why a host may not add these headers to a request, as a clause for a message; empty if it may.
/// No part of a header is quoted, since any may be a secret.
std::string validateRequestHeaders(const std::vector<KivRESTServiceHeader>& headers);

}  // namespace kiv
