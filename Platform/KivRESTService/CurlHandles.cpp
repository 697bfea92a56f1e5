#include "Platform/KivRESTService/CurlHandles.h"

#include <curl/curl.h>

namespace kiv {

void EasyHandleDeleter::operator()(void* handle) const noexcept {
  curl_easy_cleanup(handle);
}

void MultiHandleDeleter::operator()(void* handle) const noexcept {
  curl_multi_cleanup(handle);
}

EasyHandle makeEasyHandle() {
  return EasyHandle(curl_easy_init());
}

MultiHandle makeMultiHandle() {
  return MultiHandle(curl_multi_init());
}

}  // namespace kiv
