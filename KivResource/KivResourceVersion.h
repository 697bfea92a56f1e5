#pragma once

#include "KivPlatform/Foundation/Export.h"

/// The framework's version number and version string.
extern KIV_EXPORT const double KivResourceVersionNumber;
extern KIV_EXPORT const char* const KivResourceVersionString;
