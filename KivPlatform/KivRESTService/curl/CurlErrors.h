#pragma once

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

/// libcurl's result code for a time-out.
inline constexpr int resultOfTimeOut = 28;

/// Maps libcurl's result codes to transfer errors. Codes that do not concern HTTP, and those of
/// later versions, are `unknown`.
KIV_EXPORT KivRESTServiceErrorCode errorCodeForCurlResult(int result) noexcept;

}  // namespace kiv
