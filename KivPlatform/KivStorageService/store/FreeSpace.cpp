// A save that cannot fit should fail before it fills the disk. The comparison subtracts from the
// free space rather than adding the sizes, which could overflow.

#include "KivPlatform/KivStorageService/store/FreeSpace.h"

#include <algorithm>
#include <string>

#include "KivPlatform/KivStorageService/store/StorageErrors.h"

namespace kiv::storage {

Status checkRoom(std::uint64_t bytes, std::string_view sort, std::string_view name,
                 const FileSystemSpace& space) {
  const std::uint64_t reserve = std::min(bytes, largestReserve);
  const bool fits = bytes <= space.available && reserve <= space.available - bytes;
  if (fits) return {};
  return storageError(KivStorageServiceErrorCode::noSpace,
                      "The disk has no room for the " + std::string(sort) + " " + quoted(name) +
                          ": it needs " + std::to_string(bytes) + " bytes and a reserve of " +
                          std::to_string(reserve) + ", and " + std::to_string(space.available) +
                          " are free.");
}

}  // namespace kiv::storage
