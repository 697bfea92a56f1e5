#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivStorageService/KivStorageServiceErrors.h"

/// Construction of the storage service's errors.
namespace kiv::storage {

Error storageError(KivStorageServiceErrorCode code, std::string_view message);

/// There is no storage root.
Error noRootError();

/// The text in double quotes, for a message. Control characters and invalid UTF-8 are escaped as
/// "\xNN". The middle of a text of more than 300 bytes is replaced by "...".
std::string quoted(std::string_view text);

}  // namespace kiv::storage
