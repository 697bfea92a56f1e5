#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivStorageService/KivStorageServiceErrors.h"

/// Makes and tests errors of the storage service.
namespace kiv::storage {

Error storageError(KivStorageServiceErrorCode code, std::string_view message);

/// True if it is the operating system's error with that number.
bool isSystemError(const std::optional<Error>& error, std::errc number) noexcept;

/// The text in double quotes for a message: control characters and invalid UTF-8 escaped as "\xNN",
/// the middle of a very long text left out.
std::string quoted(std::string_view text);

}  // namespace kiv::storage
