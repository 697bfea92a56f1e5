#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace kiv {

/// An error with that code for the URL. Its message is one sentence that ends with `what`, a clause
/// such as "the server sent two different lengths"; if that is empty, with a clause for the code.
Error transferError(KivRESTServiceErrorCode code, std::string_view url, std::string_view what = {});
/// The same transfer error for another URL.
Error sameTransferError(const Error& error, std::string_view url);

}  // namespace kiv
