#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"

namespace kiv {

/// A batch sync (FileManager::beginBatchSyncAtPath) on the system's own files; nullptr if the
/// system has none that can be relied on, or it would not pay.
std::unique_ptr<BatchSync> beginFileSystemSync(std::string_view path, std::size_t files);

}  // namespace kiv
