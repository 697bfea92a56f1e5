#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"

namespace kiv {

/// Takes over the regular file at the path, which nobody may write to any more. Its bytes are
/// mapped, not read, and it takes a descriptor. The file is removed with the last copy of the data,
/// unless Data::takeFile() handed it on; `keeper` is let go of at that moment too. Nothing if
/// the file cannot be mapped; it is then left alone.
KIV_EXPORT std::optional<Data> fileDataAtPath(std::string path,
                                              std::shared_ptr<void> keeper = nullptr,
                                              std::optional<Error>* error = nullptr);

}  // namespace kiv
