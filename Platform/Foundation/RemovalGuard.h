#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kiv::removal {

/// Adds a directory whose contents the framework makes and removes itself. Those directories are
/// the roots of the guard as long as the host has named no others. May be called from any thread,
/// again with the same one too.
void addOwnDirectory(std::string path);

/// The framework's own directories again, whatever the host has named.
void restoreOwnDirectories();
void setRoots(std::optional<std::vector<std::string>> roots);
/// The roots in force; nothing where the guard has been lifted.
std::optional<std::vector<std::string>> roots();

}  // namespace kiv::removal
