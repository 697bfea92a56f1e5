#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Error.h"

namespace kiv::storage {

/// The largest reserve that stays free, for directories and small files. The reserve is never
/// larger than the file itself.
inline constexpr std::uint64_t largestReserve = std::uint64_t{1} << 20;

/// An error if there is no room for that many bytes. `sort` ("file") and `name` are for the
/// message.
std::optional<Error> validateSize(std::uint64_t bytes, std::string_view sort, std::string_view name,
                                  const FileSystemSpace& space);

}  // namespace kiv::storage
