#pragma once

#include <curl/curl.h>

#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

/// Sets an option of an easy handle. False if libcurl rejects it: an unknown option, an unsuitable
/// value, a handle in the wrong state, or no memory.
template <class Value>
bool setOption(void* handle, CURLoption option, Value value) {
  return curl_easy_setopt(handle, option, value) == CURLE_OK;
}

/// Sets the options that are the same for all requests of a client; false if libcurl rejects one.
/// Transfer sets those of a single request.
bool setLastingOptions(void* easyHandle, const TransferSettings& settings);

}  // namespace kiv
