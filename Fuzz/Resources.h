#pragma once

#include <vector>

#include "KivResource/KivResourceObject.h"

namespace kiv::fuzz {

/// Asks the resources everything that a pass asks without touching the network or changing the
/// disk, and has them copied, saved and restored: that must change nothing.
void exercise(const std::vector<std::shared_ptr<KivResource>>& resources);

}  // namespace kiv::fuzz
