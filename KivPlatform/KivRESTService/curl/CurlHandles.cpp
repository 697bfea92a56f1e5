#include "KivPlatform/KivRESTService/curl/CurlHandles.h"

#include <curl/curl.h>

namespace kiv {

void EasyHandleDeleter::operator()(void* handle) const noexcept {
  curl_easy_cleanup(handle);
}

void HeaderListDeleter::operator()(void* list) const noexcept {
  curl_slist_free_all(static_cast<curl_slist*>(list));
}

EasyHandle makeEasyHandle() {
  return EasyHandle(curl_easy_init());
}

HeaderList makeHeaderList(const std::vector<std::string>& headers) {
  HeaderList list;
  for (const std::string& header : headers) {
    auto* const longer = curl_slist_append(static_cast<curl_slist*>(list.get()), header.c_str());
    if (!longer) return {};
    static_cast<void>(list.release());
    list.reset(longer);
  }
  return list;
}

MultiHandle::MultiHandle() : handle_(curl_multi_init()) {}

MultiHandle::~MultiHandle() {
  curl_multi_cleanup(handle_);
}

bool MultiHandle::add(void* easyHandle) {
  return curl_multi_add_handle(handle_, easyHandle) == CURLM_OK;
}

void MultiHandle::remove(void* easyHandle) {
  curl_multi_remove_handle(handle_, easyHandle);
}

std::optional<MultiHandle::Woken> MultiHandle::wait(int descriptor,
                                                    std::chrono::milliseconds longest) {
  // Not curl_multi_wakeup(): if the host closed its descriptor, that could not be detected.
  curl_waitfd further{descriptor, CURL_WAIT_POLLIN, 0};
  const auto timeout = static_cast<int>(longest.count());
  if (curl_multi_wait(handle_, &further, 1, timeout, nullptr) != CURLM_OK) return std::nullopt;
  return further.revents != 0 ? Woken::byDescriptor : Woken::byRequests;
}

bool MultiHandle::move() {
  int stillRunning = 0;
  return curl_multi_perform(handle_, &stillRunning) == CURLM_OK;
}

std::vector<MultiHandle::Ended> MultiHandle::takeEnded() {
  std::vector<Ended> ended;
  int left = 0;
  // Copied, since a message becomes invalid when its handle is removed.
  while (const CURLMsg* const message = curl_multi_info_read(handle_, &left)) {
    if (message->msg == CURLMSG_DONE) {
      ended.push_back({message->easy_handle, static_cast<int>(message->data.result)});
    }
  }
  return ended;
}

}  // namespace kiv
