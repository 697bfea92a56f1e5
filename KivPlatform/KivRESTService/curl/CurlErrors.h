#pragma once

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

/// The transfer error that a result code of libcurl stands for. Every number has one: those that
/// say nothing about an HTTP transfer, and those that later versions add, are `unknown`.
KIV_EXPORT KivRESTServiceErrorCode errorCodeForCurlResult(int result) noexcept;

}  // namespace kiv
