#include "KivPlatform/KivRESTService/curl/CurlHandles.h"

#include <curl/curl.h>

namespace kiv {

void EasyHandleDeleter::operator()(void* handle) const noexcept {
  curl_easy_cleanup(handle);
}

void MultiHandleDeleter::operator()(void* handle) const noexcept {
  curl_multi_cleanup(handle);
}

void HeaderListDeleter::operator()(void* list) const noexcept {
  curl_slist_free_all(static_cast<curl_slist*>(list));
}

EasyHandle makeEasyHandle() {
  return EasyHandle(curl_easy_init());
}

MultiHandle makeMultiHandle() {
  return MultiHandle(curl_multi_init());
}

HeaderList makeHeaderList(const std::string& header) {
  return HeaderList(curl_slist_append(nullptr, header.c_str()));
}

}  // namespace kiv
