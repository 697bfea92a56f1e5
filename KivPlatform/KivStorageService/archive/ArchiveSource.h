#pragma once

#include <zip.h>

#include "KivPlatform/Foundation/values/Data.h"

namespace kiv::storage {

/// What the decoder reads an archive from: the data's bytes in memory, or its file, never a mapping
/// of it. nullptr and an error where memory has run out.
zip_source_t* makeArchiveSource(const Data& archive, zip_error_t* error);

}  // namespace kiv::storage
