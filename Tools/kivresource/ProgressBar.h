#pragma once

#include <cstddef>
#include <string>

#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"

namespace tool {

/// How far the downloads have come, as one line of at most that many columns: a bar, files done,
/// bytes, speed, and the time left where it is known.
std::string progressLine(const KivRESTServiceProgress& progress, std::size_t width);

}  // namespace tool
