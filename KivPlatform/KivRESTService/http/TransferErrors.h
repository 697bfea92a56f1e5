#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

/// The error of that code for the URL, with a message of one sentence. `what` says what happened as
/// a clause that fits after a colon ("the server sent two different lengths"); where it is empty,
/// the code's own clause stands there.
KIV_EXPORT Error transferError(KivRESTServiceErrorCode code, std::string_view url,
                               std::string_view what = {});
/// The same transfer error for another URL.
KIV_EXPORT Error sameTransferError(const Error& error, std::string_view url);

}  // namespace kiv
