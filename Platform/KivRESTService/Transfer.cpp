#include "Platform/KivRESTService/Transfer.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <variant>

#include <curl/curl.h>

#include "Platform/KivRESTService/CurlErrors.h"
#include "Platform/KivRESTService/RedirectPolicy.h"
#include "Platform/KivRESTService/TransferErrors.h"

namespace kiv {

namespace {

using Code = KivRESTServiceErrorCode;

template <class Value>
bool set(void* handle, CURLoption option, Value value) {
  return curl_easy_setopt(handle, option, value) == CURLE_OK;
}

template <class Value>
Value info(void* handle, CURLINFO which) {
  Value value{};
  curl_easy_getinfo(handle, which, &value);
  return value;
}

}  // namespace

Transfer::Transfer(URL url, const KivRESTServiceSettings& settings, EasyHandle handle)
    : settings_(settings), handle_(std::move(handle)), url_(std::move(url)) {
  check_.emplace(settings.largestBody);
}

Transfer::~Transfer() = default;

bool Transfer::prepare() {
  return setOptions() && setSecurityOptions();
}

bool Transfer::setOptions() {
  void* const handle = handle_.get();
  curl_easy_reset(handle);
  return set(handle, CURLOPT_URL, url_.absoluteString().c_str()) &&
         set(handle, CURLOPT_PROTOCOLS_STR, "http,https") &&
         set(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https") &&
         // Redirects are followed here, one by one, so that the rules hold for each step.
         set(handle, CURLOPT_FOLLOWLOCATION, 0L) &&
         // HTTP/2 has known trouble with broken transfers in the oldest version that we link.
         set(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1)) &&
         set(handle, CURLOPT_HTTP09_ALLOWED, 0L) && set(handle, CURLOPT_NOSIGNAL, 1L) &&
         set(handle, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L) &&
         // Letting go of a handle does not wait for a slow name server.
         set(handle, CURLOPT_QUICK_EXIT, 1L) &&
         set(handle, CURLOPT_USERAGENT, settings_.userAgent.c_str()) &&
         set(handle, CURLOPT_CONNECTTIMEOUT_MS,
             static_cast<long>(settings_.connectTimeout.count())) &&
         set(handle, CURLOPT_LOW_SPEED_LIMIT, static_cast<long>(settings_.stallSpeed)) &&
         set(handle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(settings_.stallTimeout.count())) &&
         set(handle, CURLOPT_HEADERFUNCTION, &Transfer::takeHeader) &&
         set(handle, CURLOPT_HEADERDATA, this) &&
         set(handle, CURLOPT_WRITEFUNCTION, &Transfer::takeBody) &&
         set(handle, CURLOPT_WRITEDATA, this);
}

bool Transfer::setSecurityOptions() {
  void* const handle = handle_.get();
  const std::string& authorities = settings_.certificateAuthoritiesPath;
  return set(handle, CURLOPT_SSL_VERIFYPEER, 1L) && set(handle, CURLOPT_SSL_VERIFYHOST, 2L) &&
         set(handle, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2)) &&
         (authorities.empty() || set(handle, CURLOPT_CAINFO, authorities.c_str()));
}

std::size_t Transfer::takeHeader(char* bytes, std::size_t, std::size_t count, void* transfer) {
  auto& self = *static_cast<Transfer*>(transfer);
  try {
    if (!self.check_->addHeaderLine({bytes, count})) return 0;
    if (self.check_->isFile()) self.reserveBody();
    return count;
  } catch (const std::exception&) {
    self.outOfMemory_ = true;
    return 0;
  }
}

std::size_t Transfer::takeBody(char* bytes, std::size_t, std::size_t count, void* transfer) {
  auto& self = *static_cast<Transfer*>(transfer);
  constexpr std::size_t stop = CURL_WRITEFUNC_ERROR;
  try {
    if (!self.check_->addBodyBytes(count)) return stop;
    if (self.check_->isFile()) self.body_.append(bytes, count);
    return count;
  } catch (const std::exception&) {
    self.outOfMemory_ = true;
    return stop;
  }
}

/// Takes the room that the body will need, but no more than a little on the server's word alone.
void Transfer::reserveBody() {
  constexpr std::int64_t largestReserve = 8 * 1024 * 1024;
  const auto expected = std::min(check_->contentLength().value_or(0), largestReserve);
  body_.reserve(static_cast<std::size_t>(expected));
}

std::optional<TransferOutcome> Transfer::finish(int result) {
  if (outOfMemory_) return failed(Code::outOfResources);
  if (result == CURLE_OK) check_->end();
  if (check_->problem()) return failed(check_->problem()->code, check_->problem()->what);
  // Any other status than 200 is known by its headers; what became of its body does not matter.
  if (check_->hasHeaders() && !check_->isFile()) return finishAnswered();
  if (result != CURLE_OK) return broken(result);
  return TransferOutcome::succeeded(Data(std::move(body_)));
}

std::optional<TransferOutcome> Transfer::finishAnswered() {
  if (isRedirect(check_->status()) && !check_->location().empty()) return followRedirect();
  return TransferOutcome::answered(check_->status());
}

std::optional<TransferOutcome> Transfer::followRedirect() {
  if (redirects_ == settings_.redirects) return failed(Code::tooManyRedirects);
  auto target = redirectTarget(url_, check_->location());
  if (auto* const refusal = std::get_if<Error>(&target)) {
    return TransferOutcome::failed(std::move(*refusal));
  }
  ++redirects_;
  url_ = std::get<URL>(std::move(target));
  startOver();
  if (!prepare()) return failed(Code::outOfResources);
  return std::nullopt;
}

void Transfer::startOver() {
  check_.emplace(settings_.largestBody);
  body_.clear();
}

/// The outcome of a transfer that broke on its way. Some result codes mean something else when the
/// server has been asked already.
TransferOutcome Transfer::broken(int result) const {
  const bool wasAsked = info<long>(handle_.get(), CURLINFO_REQUEST_SIZE) > 0;
  const bool systemFailed = info<long>(handle_.get(), CURLINFO_OS_ERRNO) != 0;
  if (wasAsked && result == CURLE_UNSUPPORTED_PROTOCOL) {
    return failed(Code::malformedResponse, "the server's response does not begin as HTTP does");
  }
  if (wasAsked && result == CURLE_OUT_OF_MEMORY && !check_->hasHeaders()) {
    return failed(Code::malformedResponse, "the server's response has a header that is too large");
  }
  if (check_->hasHeaders() && result == CURLE_RECV_ERROR && !systemFailed) {
    return failed(Code::malformedResponse, "the server's response has a malformed body");
  }
  const Code code = errorCodeForCurlResult(result);
  if (code == Code::unknown || code == Code::secureConnectionFailed) {
    return failed(code, curl_easy_strerror(static_cast<CURLcode>(result)));
  }
  return failed(code);
}

TransferOutcome Transfer::failed(Code code, std::string_view what) const {
  return TransferOutcome::failed(transferError(code, url_.absoluteString(), what));
}

EasyHandle Transfer::takeHandle() {
  return std::move(handle_);
}

}  // namespace kiv
