#pragma once

#include <string>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// A text that stays the same until the computer starts anew, for who has to know whether what was
/// written to a file without waiting for the disk is still to be trusted. Empty where the system
/// does not tell; equal empty texts then mean nothing.
KIV_EXPORT std::string bootIdentity();

}  // namespace kiv
