#pragma once

#include "KivPlatform/Foundation/Export.h"

/// The version of these headers, for the preprocessor.
#define KIVRESOURCE_VERSION_MAJOR 1
#define KIVRESOURCE_VERSION_MINOR 0
#define KIVRESOURCE_VERSION_PATCH 0
/// The same as one number, in which 1.10.0 comes after 1.9.0: 1'010'000.
#define KIVRESOURCE_VERSION                                                 \
  (KIVRESOURCE_VERSION_MAJOR * 1000000 + KIVRESOURCE_VERSION_MINOR * 1000 + \
   KIVRESOURCE_VERSION_PATCH)

namespace kiv {
/// KIVRESOURCE_VERSION of the library that is running, which may be newer than the headers.
KIV_EXPORT int version() noexcept;
}  // namespace kiv

/// The framework's version number, major and minor alone, and version string. The number does not
/// sort: 1.10 is 1.1.
extern KIV_EXPORT const double KivResourceVersionNumber;
extern KIV_EXPORT const char* const KivResourceVersionString;
