#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KivPlatform/KivStorageService/store/StorageRoot.h"

/// The storage root in use. Thread-safe.
namespace kiv::storage {

/// The path of the root, empty if there is none. Does not access the disk.
std::string currentRootPath();

/// Sets the root; nothing restores the default. Saves that run in the former root complete there.
void setCurrentRootPath(std::optional<std::string> path);

/// The root, opened by the first call; nullptr if there is none.
std::shared_ptr<StorageRoot> currentRoot();

}  // namespace kiv::storage
