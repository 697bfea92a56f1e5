#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivStorageService/KivStorageServiceErrors.h"

/// Makes errors of the storage service.
namespace kiv::storage {

Error storageError(KivStorageServiceErrorCode code, std::string_view message);

/// The text in double quotes for a message. Control characters and invalid UTF-8 are escaped as
/// "\xNN", and the middle of a very long text is left out.
std::string quoted(std::string_view text);

}  // namespace kiv::storage
