#pragma once

#include "KivPlatform/Foundation/Export.h"

/// A program that links an installed static library may be anywhere, so it cannot find the packaged
/// resources by its own path. This header tells where they are installed: the CMake package defines
/// KIVRESOURCE_RESOURCES, the directory; the pkg-config file defines
/// KIVRESOURCE_RESOURCES_FROM_HEADER, the path relative to the directory of this header, without
/// quotes, since some shells drop them.

#if !defined(KIVRESOURCE_RESOURCES) && defined(KIVRESOURCE_RESOURCES_FROM_HEADER)
#define KIVRESOURCE_TEXT_OF(words) #words
#define KIVRESOURCE_TEXT(macro) KIVRESOURCE_TEXT_OF(macro)
#define KIVRESOURCE_RESOURCES __FILE__ "/../" KIVRESOURCE_TEXT(KIVRESOURCE_RESOURCES_FROM_HEADER)
#endif

namespace kiv {

/// Sets the directory of the installed resources, an absolute path with static storage duration,
/// which is searched after those beside the program. Called before main by this header; a host
/// calls Bundle::setFrameworkResourcesPath() instead. Returns true.
KIV_EXPORT bool nameInstalledResources(const char* directory) noexcept;

#if defined(KIVRESOURCE_RESOURCES)
inline const bool installedResourcesAreNamed = nameInstalledResources(KIVRESOURCE_RESOURCES);
#endif

}  // namespace kiv
