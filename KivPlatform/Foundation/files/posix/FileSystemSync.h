#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"

namespace kiv {

/// A batch sync (FileManager::beginBatchSyncAtPath) of the system's own files; nullptr if the
/// system has none that is reliable, or it would not be faster.
std::unique_ptr<BatchSync> beginFileSystemSync(std::string_view path, std::size_t files);

}  // namespace kiv

/// When one sync of a whole file system (syncfs) is safe, and when it is faster. Pure functions.
namespace kiv::batchsync {

/// True if one syncfs takes less time than an fsync of each file.
///
/// One syncfs also writes what other programs have not written yet, and waits for it. Measured on
/// ext4 on a virtual disk that writes 3.5 GB/s, files of 8 KB, medians of 15: an fsync each takes
/// 0.20 ms a file, one syncfs 0.04 ms a file and 0.3 ms at the start; 256 MiB that another program
/// has just written make it 72 ms longer. So one fsync costs as much as 0.6 MiB of other programs'
/// writes there, and more if the processor is busy (8 ms were seen) or the disk slow to flush.
/// Below eight files less than a millisecond can be saved.
[[nodiscard]] constexpr bool pays(std::size_t files, std::uint64_t unwrittenBytes) {
  constexpr std::size_t fewestFiles = 8;
  constexpr std::uint64_t bytesWorthOneSync = 1024 * 1024;
  return files >= fewestFiles && unwrittenBytes / bytesWorthOneSync < files;
}

/// True if syncfs reports write errors in that Linux release: since 5.8.
[[nodiscard]] bool reportsWriteErrors(std::string_view kernelRelease);

/// The dirty bytes of all file systems, from the text of /proc/meminfo; nothing if it is not there.
[[nodiscard]] std::optional<std::uint64_t> unwrittenBytes(std::string_view memoryInformation);

}  // namespace kiv::batchsync
