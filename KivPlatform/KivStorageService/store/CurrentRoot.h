#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KivPlatform/KivStorageService/store/StorageRoot.h"

/// Which root the service uses now. May be called from any thread.
namespace kiv::storage {

/// The path of the root, empty where there is none. Looks at nothing on the disk.
std::string currentRootPath();

/// Uses the path from now on; nothing brings the default back. What saves in another root at this
/// moment completes there.
void setCurrentRootPath(std::optional<std::string> path);

/// The root itself, in use from the first call on; nullptr where there is none.
std::shared_ptr<StorageRoot> currentRoot();

}  // namespace kiv::storage
