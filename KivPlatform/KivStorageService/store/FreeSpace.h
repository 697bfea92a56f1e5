#pragma once

#include <cstdint>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv::storage {

/// The largest reserve that stays free, for directories and small files. The reserve is never
/// larger than the file itself.
inline constexpr std::uint64_t largestReserve = std::uint64_t{1} << 20;

/// Fails if there is no room for that many bytes. `sort` ("file") and `name` are for the
/// message.
Status checkRoom(std::uint64_t bytes, std::string_view sort, std::string_view name,
                 const FileSystemSpace& space);

}  // namespace kiv::storage
