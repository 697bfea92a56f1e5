#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kiv::removal {

/// Of which the process uses one at a time.
enum class OwnDirectory { resources, temporaries };

// The directories whose contents the framework makes and removes itself. They are the roots of the
// guard as long as the host has named no others. These may be called from any thread, again with
// the same directory too.

/// In place of the one that was named before.
void setOwnDirectory(OwnDirectory which, std::string path);
/// Beside those of other clients.
void addSpoolDirectory(std::string path);

/// The framework's own directories again, whatever the host has named.
void restoreOwnDirectories();
void setRoots(std::optional<std::vector<std::string>> roots);
/// The roots in force; nothing where the guard has been lifted.
std::optional<std::vector<std::string>> roots();

}  // namespace kiv::removal
