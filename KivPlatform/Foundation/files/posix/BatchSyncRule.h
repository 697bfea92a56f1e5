#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

/// When one sync of a whole file system is safe, and when it pays. Plain arithmetic, apart from the
/// system calls that need it.
namespace kiv::batchsync {

/// True where one sync of the whole file system takes less time than a sync of each file.
///
/// One for all also writes what other programs have not written yet, and has to wait for it: they
/// can make it as long as they like. Measured on ext4 on a virtual disk that writes 3.5 GB/s, files
/// of 8 KB, medians of 15: a sync each takes 0.20 ms a file, one for all 0.04 ms a file and 0.3 ms
/// at the start; 256 MiB that another program has just written make it 72 ms longer. So the sync of
/// one file is worth 0.6 MiB of others' writing there, and more where the processor is busy (8 ms a
/// sync were seen) or the disk slow to flush. Below eight files there is less than a millisecond to
/// win.
[[nodiscard]] constexpr bool pays(std::size_t files, std::uint64_t unwrittenBytes) {
  constexpr std::size_t fewestFiles = 8;
  constexpr std::uint64_t bytesWorthOneSync = 1024 * 1024;
  return files >= fewestFiles && unwrittenBytes / bytesWorthOneSync < files;
}

/// True where a Linux kernel of that release tells the caller of syncfs that writing has failed.
/// Before 5.8 it answered success whatever became of the data.
[[nodiscard]] bool reportsWriteErrors(std::string_view kernelRelease);

/// The bytes that wait to be written, all programs and file systems together, from the text of
/// /proc/meminfo; nothing where it does not say.
[[nodiscard]] std::optional<std::uint64_t> unwrittenBytes(std::string_view memoryInformation);

}  // namespace kiv::batchsync
