#pragma once

#include <string>

/// The note with which an interrupted swap of directories can be undone: a file beside the
/// directory that was moved away, with the path under the root where it belongs.
namespace kiv::storage {

/// The path of the note for a directory that was moved to `spare`.
std::string swapNotePath(const std::string& spare);

/// Moves back the directories that interrupted swaps of that process have moved away.
void undoInterruptedSwaps(const std::string& processDirectory, const std::string& rootPath);

}  // namespace kiv::storage
