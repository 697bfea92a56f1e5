#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

/// libcurl's result code for a time-out.
inline constexpr int resultOfTimeOut = 28;
/// libcurl's result code for a body that the end of the connection has cut.
inline constexpr int resultOfCutBody = 18;
/// libcurl's result code for a header that is too large, since 8.6. Before that it said that memory
/// had run out.
inline constexpr int resultOfTooLarge = 100;

/// Maps libcurl's result codes to transfer errors. Codes that do not concern HTTP, and those of
/// later versions, are `unknown`.
KivRESTServiceErrorCode errorCodeForCurlResult(int result) noexcept;

/// True if a request over HTTP/2 gets that result when its connection, not just its stream, has
/// ended.
bool isEndOfHTTP2Connection(int result) noexcept;

/// Says why libcurl has rejected a server's certificate, as a clause for an error's message.
/// `detail` is libcurl's message, which depends on its TLS library, and `verifyResult` that
/// library's code. A message that is not recognised is quoted.
std::string certificateProblem(std::string_view server, std::string_view detail, long verifyResult);

}  // namespace kiv
