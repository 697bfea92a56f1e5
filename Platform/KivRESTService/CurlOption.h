#pragma once

#include <curl/curl.h>

namespace kiv {

/// Sets an option of an easy handle; false where memory has run out, or libcurl does not know it.
template <class Value>
bool setOption(void* handle, CURLoption option, Value value) {
  return curl_easy_setopt(handle, option, value) == CURLE_OK;
}

}  // namespace kiv
