#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// Why libcurl has refused the certificate of a server, as a clause that fits after a colon.
/// `server` names the server in that clause, `detail` is libcurl's own message, which depends on
/// its TLS library, and `verifyResult` the number that this library gave. What neither of them
/// explains is quoted.
KIV_EXPORT std::string certificateProblem(std::string_view server, std::string_view detail,
                                          long verifyResult);

}  // namespace kiv
