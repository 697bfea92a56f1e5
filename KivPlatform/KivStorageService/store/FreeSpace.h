#pragma once

#include <cstdint>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv::storage {

/// The largest reserve, in bytes, that a save leaves free for directories and small files. The
/// reserve of a smaller file is its own size.
inline constexpr std::uint64_t largestReserve = std::uint64_t{1} << 20;

/// Fails with noSpace if the bytes and their reserve do not fit. `sort` ("file") and `name` are for
/// the error message.
Status checkRoom(std::uint64_t bytes, std::string_view sort, std::string_view name,
                 const FileSystemSpace& space);

}  // namespace kiv::storage
