#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Error.h"

namespace kiv::storage {

/// What is to stay free, at most: room for the directories and for the small files that follow. A
/// small file is not refused for the sake of a large reserve, so it is never more than the file.
inline constexpr std::uint64_t largestReserve = std::uint64_t{1} << 20;

/// The error for bytes that there is no room for, or nothing where there is. `sort` ("file") and
/// `name` serve the message.
std::optional<Error> validateSize(std::uint64_t bytes, std::string_view sort, std::string_view name,
                                  const FileSystemSpace& space);

}  // namespace kiv::storage
