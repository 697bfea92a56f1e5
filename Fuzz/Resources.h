#pragma once

#include <vector>

#include "KivResource/KivResourceObject.h"

namespace kiv::fuzz {

/// Calls everything on the resources that a pass calls without network and disk changes, then
/// copies, saves and restores them, which must not change them.
void exercise(const std::vector<std::shared_ptr<KivResource>>& resources);

}  // namespace kiv::fuzz
