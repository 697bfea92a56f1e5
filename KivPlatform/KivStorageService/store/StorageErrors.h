#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivStorageService/KivStorageServiceErrors.h"

/// The storage service's own errors.
namespace kiv::storage {

Error storageError(KivStorageServiceErrorCode code, std::string_view message);

/// True where the error is the operating system's of that number.
bool isSystemError(const std::optional<Error>& error, std::errc number) noexcept;

/// The text in double quotes, with what would blur a message (control characters, bytes that are no
/// UTF-8) written as "\xNN" and the middle of a very long text left out.
std::string quoted(std::string_view text);

}  // namespace kiv::storage
