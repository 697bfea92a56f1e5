#pragma once

#include <string>

/// The note that a swap of directories leaves for the case that it is interrupted: it lies beside
/// the directory that makes way, and names the path, under the root, where that belongs.
namespace kiv::storage {

/// Where the note lies for the directory that makes way to `spare`.
std::string swapNotePath(const std::string& spare);

/// Puts back what swaps of the process whose directory this is have moved away and never replaced,
/// because it died or the disk failed.
void undoInterruptedSwaps(const std::string& processDirectory, const std::string& rootPath);

}  // namespace kiv::storage
