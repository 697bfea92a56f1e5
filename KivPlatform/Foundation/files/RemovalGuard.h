#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kiv::removal {

/// Of which the process uses one at a time.
enum class OwnDirectory { resources, temporaries };

// The directories whose contents the framework creates and removes itself. They are the guard's
// roots unless the host has set others. Thread-safe.

/// Replaces the one that was set before.
void setOwnDirectory(OwnDirectory which, std::string path);
/// Adds one to those of other clients.
void addSpoolDirectory(std::string path);

/// Restores the framework's own directories.
void restoreOwnDirectories();
void setRoots(std::optional<std::vector<std::string>> roots);
/// The roots in use; nothing if the guard is off.
std::optional<std::vector<std::string>> roots();

}  // namespace kiv::removal
