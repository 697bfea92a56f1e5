#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

/// libcurl's result code for a time-out.
inline constexpr int resultOfTimeOut = 28;
/// libcurl's result code for a body that was cut off by the end of the connection.
inline constexpr int resultOfCutBody = 18;
/// libcurl's result code for a header that is too large, since 8.6. Earlier versions report that
/// memory has run out.
inline constexpr int resultOfTooLarge = 100;

/// Maps libcurl's result codes to transfer errors. Codes that do not concern HTTP, and codes of
/// later versions, become `unknown`.
KivRESTServiceErrorCode errorCodeForCurlResult(int result) noexcept;

/// True if a request over HTTP/2 gets that result when its whole connection, not just its stream,
/// has ended.
bool isEndOfHTTP2Connection(int result) noexcept;

/// Why libcurl has rejected a server's certificate, as a clause for an error's message. `detail` is
/// libcurl's message, which depends on its TLS library, and `verifyResult` is that library's code.
/// A message that is not recognised is quoted.
std::string certificateProblem(std::string_view server, std::string_view detail, long verifyResult);

}  // namespace kiv
