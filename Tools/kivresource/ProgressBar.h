#pragma once

#include <cstddef>
#include <string>

#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"

namespace tool {

/// The progress of the downloads as one line of at most `width` columns: a bar, completed files,
/// bytes, speed and, if known, the remaining time.
std::string progressLine(const KivRESTServiceProgress& progress, std::size_t width);

}  // namespace tool
