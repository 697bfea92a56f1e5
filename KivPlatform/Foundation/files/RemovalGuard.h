#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kiv::removal {

/// Directories of which the process uses one at a time.
enum class OwnDirectory { resources, temporaries };

// The directories whose contents the framework creates and removes itself. They are the roots of
// the removal guard unless the host has set others. The storage module sets the directory of
// resources, the storage service that of temporaries, and each client adds its spool directory;
// removeItem() in posix/PosixRemoval.h enforces the roots. Thread-safe.

/// Sets the directory, replacing the previous one of that kind.
void setOwnDirectory(OwnDirectory which, std::string path);
/// Adds a spool directory; the process may have several, one for each client.
void addSpoolDirectory(std::string path);

/// Makes the framework's own directories the roots again.
void restoreOwnDirectories();
/// Sets the host's roots; std::nullopt turns the guard off.
void setRoots(std::optional<std::vector<std::string>> roots);
/// The current roots; nothing if the guard is off.
std::optional<std::vector<std::string>> roots();

}  // namespace kiv::removal
