#pragma once

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

/// The result code of a request that ran into a time-out.
inline constexpr int resultOfTimeOut = 28;

/// The transfer error that a result code of libcurl stands for. Every number has one: those that
/// say nothing about an HTTP transfer, and those that later versions add, are `unknown`.
KIV_EXPORT KivRESTServiceErrorCode errorCodeForCurlResult(int result) noexcept;

}  // namespace kiv
