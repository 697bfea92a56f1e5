#pragma once

#include <curl/curl.h>

namespace kiv {

/// Sets an option of an easy handle; false where libcurl refuses it: it does not know the option,
/// the value does not suit it or the state that the handle is in, or memory has run out.
template <class Value>
bool setOption(void* handle, CURLoption option, Value value) {
  return curl_easy_setopt(handle, option, value) == CURLE_OK;
}

}  // namespace kiv
