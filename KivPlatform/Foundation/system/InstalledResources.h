#pragma once

#include "KivPlatform/Foundation/Export.h"

/// A program that has an installed static library inside lies anywhere, and so do its packaged
/// resources relative to it. Such a program learns from these headers where they were installed:
/// the CMake package defines KIVRESOURCE_RESOURCES, the directory, and the pkg-config file
/// KIVRESOURCE_RESOURCES_FROM_HEADER, the way there from the directory of this header, without
/// quotes, which would not pass every shell.

#if !defined(KIVRESOURCE_RESOURCES) && defined(KIVRESOURCE_RESOURCES_FROM_HEADER)
#define KIVRESOURCE_TEXT_OF(words) #words
#define KIVRESOURCE_TEXT(macro) KIVRESOURCE_TEXT_OF(macro)
#define KIVRESOURCE_RESOURCES __FILE__ "/../" KIVRESOURCE_TEXT(KIVRESOURCE_RESOURCES_FROM_HEADER)
#endif

namespace kiv {

/// Names the directory that an installed library keeps its resources in: an absolute path that
/// outlives the program. It is looked in after those beside the program. Called before main by the
/// headers; a host calls Bundle::setFrameworkResourcesPath instead. Answers true.
KIV_EXPORT bool nameInstalledResources(const char* directory) noexcept;

#if defined(KIVRESOURCE_RESOURCES)
inline const bool installedResourcesAreNamed = nameInstalledResources(KIVRESOURCE_RESOURCES);
#endif

}  // namespace kiv
