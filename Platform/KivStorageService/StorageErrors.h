#pragma once

#include <string>
#include <string_view>

#include "Platform/Foundation/Error.h"
#include "Platform/KivStorageService/KivStorageService.h"

/// The storage service's own errors.
namespace kiv::storage {

Error storageError(KivStorageServiceErrorCode code, std::string_view message);

/// The text in double quotes, with what would blur a message (control characters, bytes that are no
/// UTF-8) written as "\xNN" and the middle of a very long text left out.
std::string quoted(std::string_view text);

}  // namespace kiv::storage
