// libcurl is set up not to follow redirects or to decode content. An attempt makes each request of
// a redirect chain itself, since the rules for redirects and ranges concern the whole chain.

#include "KivPlatform/KivRESTService/curl/Transfer.h"

#include <exception>
#include <utility>

#include <curl/curl.h>

#include "KivPlatform/KivRESTService/curl/CurlErrors.h"
#include "KivPlatform/KivRESTService/curl/CurlOptions.h"
#include "KivPlatform/KivRESTService/http/HeaderFields.h"
#include "KivPlatform/KivRESTService/http/Redirect.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"
#include "KivPlatform/KivRESTService/policy/RetryPolicy.h"

namespace kiv {

namespace {

using Code = KivRESTServiceErrorCode;

template <class Value>
Value info(void* handle, CURLINFO which) {
  Value value{};
  curl_easy_getinfo(handle, which, &value);
  return value;
}

/// True for errors of a connection attempt that may be the server's fault, not this machine's.
bool mayBeTheServersFault(Code code) noexcept {
  return isRetryable(code) || code == Code::cannotResolveHost ||
         code == Code::secureConnectionFailed;
}

/// A header in the form that libcurl takes. A name with a colon and no value would remove the
/// header.
std::string headerOption(const std::string& name, const std::string& value) {
  return value.empty() ? name + ";" : name + ": " + value;
}

}  // namespace

Transfer::Transfer(URL url, const TransferSettings& settings, SpoolDirectory& spool,
                   BodyBuffers& buffers, std::int64_t readSize, bool mayUseHTTP2, EasyHandle handle,
                   const KivRESTServiceValidators* validators)
    : settings_(settings),
      readSize_(readSize),
      mayUseHTTP2_(mayUseHTTP2),
      handle_(std::move(handle)),
      url_(url),
      validators_(validators),
      sink_(std::move(url), spool, buffers, settings.largestBodyInMemory),
      range_(validators ? std::nullopt : sink_.range()),
      redirectGuard_(settings) {}

Transfer::~Transfer() = default;

std::optional<TransferOutcome> Transfer::prepare() {
  startOver();
  if (handle_ && setOptions()) return std::nullopt;
  // A used handle refuses another buffer size while other requests share its connection, so a new
  // one is made.
  handle_ = makeEasyHandle();
  if (!handle_) return failed(Code::outOfResources);
  if (setLastingOptions(handle_.get(), settings_) && setOptions()) return std::nullopt;
  return failed(Code::unknown, "the request could not be prepared");
}

void Transfer::startOver() {
  using Protocols = ResponseCheck::Protocols;
  check_.emplace(settings_.largestBody, range_,
                 offersHTTP2() ? Protocols::http1AndHTTP2 : Protocols::http1, openEnds());
  bodyHasBegun_ = false;
  isTooSlow_ = false;
  publishLengths();
}

/// Over TLS, a connection ends with close_notify, so that a cut body can be detected. But libcurl
/// reports success with or without it, so no open end is accepted.
ResponseCheck::OpenEnds Transfer::openEnds() const {
  using OpenEnds = ResponseCheck::OpenEnds;
  if (url_.scheme() == "https") return OpenEnds::none;
  return settings_.takesBodiesWithoutLength ? OpenEnds::all : OpenEnds::http10;
}

/// Publishes the lengths for other threads.
void Transfer::publishLengths() noexcept {
  received_ = sink_.length();
  expected_ = check_->isFile() ? check_->fileLength().value_or(unknown) : unknown;
}

bool Transfer::setOptions() {
  return setRequest() && setVersion() && setRange() && setHeaderList() &&
         redirectGuard_.setOptions(handle_.get());
}

/// Sets or resets all options that an earlier transfer may have set on the handle.
bool Transfer::setRequest() {
  void* const handle = handle_.get();
  constexpr const char* none = nullptr;
  static_assert(sizeof message_ >= CURL_ERROR_SIZE);
  return setOption(handle, CURLOPT_URL, url_.absoluteString().c_str()) &&
         setOption(handle, CURLOPT_BUFFERSIZE, static_cast<long>(readSize_)) &&
         setOption(handle, CURLOPT_FRESH_CONNECT, isOnFreshConnection_ ? 1L : 0L) &&
         setOption(handle, CURLOPT_ERRORBUFFER, message_.data()) &&
         setOption(handle, CURLOPT_HEADERFUNCTION, &Transfer::takeHeader) &&
         setOption(handle, CURLOPT_HEADERDATA, this) &&
         setOption(handle, CURLOPT_WRITEFUNCTION, &Transfer::takeBody) &&
         setOption(handle, CURLOPT_WRITEDATA, this) &&
         setOption(handle, CURLOPT_XFERINFOFUNCTION, &Transfer::flushBody) &&
         setOption(handle, CURLOPT_XFERINFODATA, this) && setOption(handle, CURLOPT_RANGE, none) &&
         setOption(handle, CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr)) &&
         setOption(handle, CURLOPT_MAX_RECV_SPEED_LARGE, curl_off_t{0});
}

bool Transfer::setVersion() {
  const long version = offersHTTP2() ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1;
  return setOption(handle_.get(), CURLOPT_HTTP_VERSION, version);
}

/// Requests the rest of the file, if part of it is kept.
bool Transfer::setRange() {
  if (!range_) return true;
  const std::string range = std::to_string(range_->first) + "-";
  return setOption(handle_.get(), CURLOPT_RANGE, range.c_str());
}

/// If-Range makes the server send the whole file if it has changed.
bool Transfer::setHeaderList() {
  std::vector<std::string> headers;
  if (range_) headers.push_back("If-Range: " + range_->version.validator());
  const std::string condition = conditionHeader();
  isConditional_ = !condition.empty();
  if (isConditional_) headers.push_back(condition);
  for (const auto& [name, value] : hostHeaders_)
    headers.push_back(headerOption(name, value));
  if (headers.empty()) return true;
  headers_ = makeHeaderList(headers);
  return headers_ &&
         setOption(handle_.get(), CURLOPT_HTTPHEADER, static_cast<curl_slist*>(headers_.get()));
}

/// Empty if the current URL is to be asked unconditionally. The host may have stored the validators
/// anywhere, so they are checked again.
std::string Transfer::conditionHeader() const {
  if (!validators_ || validators_->url != url_.absoluteString()) return {};
  if (isEntityTag(validators_->entityTag)) return "If-None-Match: " + validators_->entityTag;
  const std::string& date = validators_->lastModified;
  return secondsFromHTTPDate(date) ? "If-Modified-Since: " + date : std::string();
}

void Transfer::setHeaders(KivRESTServiceRequest::Headers headers) {
  hostHeaders_ = std::move(headers);
  isRedirected_ = false;
}

void Transfer::limitSpeed(std::int64_t bytesPerSecond) {
  setOption(handle_.get(), CURLOPT_MAX_RECV_SPEED_LARGE, static_cast<curl_off_t>(bytesPerSecond));
}

std::size_t Transfer::takeHeader(char* bytes, std::size_t, std::size_t count, void* transfer) {
  auto& self = *static_cast<Transfer*>(transfer);
  self.bytesCome_ += static_cast<std::int64_t>(count);
  try {
    return self.takeHeaderLine({bytes, count}) ? count : 0;
  } catch (const std::exception&) {
    self.cannotStore_ = true;
    return 0;
  }
}

bool Transfer::takeHeaderLine(std::string_view line) {
  if (!check_->addHeaderLine(line)) return false;
  if (!check_->isFile() || bodyHasBegun_) return true;
  bodyHasBegun_ = true;
  return beginBody();
}

bool Transfer::beginBody() {
  if (!check_->isContinuation()) {
    cannotStore_ = !sink_.begin(url_, *check_);
  } else if (sink_.isFrom(url_)) {
    cannotStore_ = !sink_.resume();
  } else {
    return false;  // validators of two servers are not comparable
  }
  publishLengths();
  return !cannotStore_;
}

std::size_t Transfer::takeBody(char* bytes, std::size_t, std::size_t count, void* transfer) {
  auto& self = *static_cast<Transfer*>(transfer);
  self.bytesCome_ += static_cast<std::int64_t>(count);
  constexpr std::size_t stop = CURL_WRITEFUNC_ERROR;
  try {
    if (!self.check_->addBodyBytes(count)) return stop;
    self.cannotStore_ = self.check_->isFile() && !self.sink_.append({bytes, count});
    self.publishLengths();
  } catch (const std::exception&) {
    self.cannotStore_ = true;
  }
  return self.cannotStore_ ? stop : count;
}

/// Called by libcurl after each read, and every second.
int Transfer::flushBody(void* transfer, std::int64_t, std::int64_t, std::int64_t, std::int64_t) {
  auto& self = *static_cast<Transfer*>(transfer);
  try {
    if (!self.sink_.flush()) self.cannotStore_ = true;
  } catch (const std::exception&) {
    self.cannotStore_ = true;
  }
  return self.cannotStore_ ? 1 : 0;
}

std::optional<std::int64_t> Transfer::bytesExpected() const noexcept {
  const std::int64_t expected = expected_;
  return expected == unknown ? std::nullopt : std::optional(expected);
}

std::optional<long> Transfer::sharedConnection() const {
  if (!offersHTTP2() || !hasConnection() || !check_->mayBeHTTP2()) return std::nullopt;
  const auto port = info<long>(handle_.get(), CURLINFO_LOCAL_PORT);
  return port > 0 ? std::optional(port) : std::nullopt;
}

std::optional<long> Transfer::endedConnection(int result) const {
  return isEndOfHTTP2Connection(result) ? sharedConnection() : std::nullopt;
}

std::optional<std::string> Transfer::unmadeConnection(int result) const {
  return result == CURLE_OK || hasConnection() ? std::nullopt : sharedOrigin();
}

std::optional<std::string> Transfer::sharedOrigin() const {
  return offersHTTP2() ? std::optional(url_.origin()) : std::nullopt;
}

AttemptResult Transfer::shareFailure(int result) const {
  AttemptResult shared(failed(errorCodeForCurlResult(result)));
  shared.wasReached = redirects_ > 0;
  shared.isUnreachable = !shared.wasReached;
  return shared;
}

AttemptResult Transfer::refuse(std::string_view why) const {
  AttemptResult refused(failed(Code::refusedRequest, why));
  refused.wasReached = true;
  return refused;
}

std::optional<AttemptResult> Transfer::finish(int result) {
  auto ended = outcome(result);
  if (ended && mayBeTheConnectionsFault(*ended)) ended = askOnFreshConnection();
  if (!ended) return std::nullopt;
  if (ended->isSuccess()) returnValidators(*ended);
  AttemptResult tried(std::move(*ended));
  describe(tried);
  return tried;
}

std::optional<TransferOutcome> Transfer::outcome(int result) {
  if (cannotStore_) return failed(Code::outOfResources, storageProblem());
  if (Status status = redirectGuard_.checkConnection(); !status) {
    return TransferOutcome::failed(std::move(status).error());
  }
  if (result == CURLE_OK) check_->end();
  if (check_->deniesRange() && check_->status() == 416) return TransferOutcome::answered(416);
  if (check_->problem()) return failed(check_->problem()->code, check_->problem()->what);
  // With any other status, the body does not matter.
  if (check_->hasHeaders() && !check_->isFile()) {
    if (isConditional_ && check_->status() == 304) return TransferOutcome::unchanged();
    const bool leadsOn = isRedirect(check_->status()) && !check_->location().empty();
    return leadsOn ? followRedirect() : TransferOutcome::answered(check_->status());
  }
  if (result != CURLE_OK) return broken(result);
  return finishBody();
}

/// If a 304 does not repeat the validators, the old ones still apply.
void Transfer::returnValidators(TransferOutcome& outcome) const {
  KivRESTServiceValidators validators{url_.absoluteString(), check_->entityTag(),
                                      check_->lastModified()};
  if (outcome.isUnchanged && validators.isEmpty()) validators = *validators_;
  outcome.validators = std::move(validators);
}

TransferOutcome Transfer::finishBody() {
  auto data = sink_.finish();
  if (!data) return failed(Code::outOfResources, storageProblem());
  return TransferOutcome::succeeded(std::move(*data));
}

/// Describes the attempt for the next one and for the metrics.
void Transfer::describe(AttemptResult& tried) {
  void* const handle = handle_.get();
  const bool succeeded = tried.outcome.isSuccess();
  const auto code = tried.errorCode();
  const bool wasAsked = hasConnection() || info<long>(handle, CURLINFO_REQUEST_SIZE) > 0;
  tried.wasReached = redirects_ > 0 || wasAsked;
  tried.isUnreachable = !tried.wasReached && code && mayBeTheServersFault(*code);
  if (!succeeded) keepOrDiscardPart(tried);
  if (succeeded && redirects_ == 0) describeLine(tried);
  tried.cameOverHTTP2 = tried.outcome.body && check_->mayBeHTTP2();
  tried.refusedHTTP2 = offersHTTP2() && redirects_ == 0 && !check_->mayBeHTTP2();
  tried.failedOverHTTP2 = hasFailedOverHTTP2(tried);
  tried.retryAfter = check_->retryAfter();
  tried.resumedBytes = succeeded ? sink_.resumed() : 0;
  tried.endedWithConnection = succeeded && check_->endsWithConnection();
  tried.timeToFirstByte =
      std::chrono::microseconds(info<curl_off_t>(handle, CURLINFO_STARTTRANSFER_TIME_T));
}

void Transfer::describeLine(AttemptResult& tried) const {
  using std::chrono::microseconds;
  const auto time = [&](CURLINFO which) {
    return microseconds(info<curl_off_t>(handle_.get(), which));
  };
  tried.transfer = time(CURLINFO_TOTAL_TIME_T) - time(CURLINFO_PRETRANSFER_TIME_T);
  if (info<long>(handle_.get(), CURLINFO_NUM_CONNECTS) == 0) return;
  tried.handshake = time(CURLINFO_CONNECT_TIME_T) - time(CURLINFO_NAMELOOKUP_TIME_T);
}

/// libcurl does not report the HTTP version of a connection that gave no response, so it may have
/// been HTTP/2.
bool Transfer::hasFailedOverHTTP2(const AttemptResult& tried) const {
  if (!offersHTTP2() || !hasConnection() || !check_->mayBeHTTP2()) return false;
  const auto code = tried.errorCode();
  return code && (isRetryable(*code) || code == Code::malformedResponse);
}

/// Decides what a failed attempt keeps of the file, and what the next one requests. If the server
/// was not reached, both stay as they are.
void Transfer::keepOrDiscardPart(AttemptResult& tried) {
  const auto code = tried.errorCode();
  const bool cameFromElsewhere = check_->isContinuation() && !sink_.isFrom(url_);
  tried.startsOver = check_->deniesRange() || cameFromElsewhere;
  // A body that is too large, or a full disk, which would happen again.
  const bool isBeyondUs = code == Code::bodyTooLarge || code == Code::outOfResources;
  const bool isSpoilt = bodyHasBegun_ && code && !isRetryable(*code);
  if (tried.startsOver || isBeyondUs || isSpoilt) sink_.discard();
  tried.madeProgress = sink_.hasGrown();
  const bool gaveTheWhole = bodyHasBegun_ && !check_->isContinuation();
  if (tried.isUnreachable || tried.madeProgress || gaveTheWhole || isBeyondUs) return;
  tried.rangeFailed = range_.has_value();
  sink_.toggleRangeRequest();
}

std::optional<TransferOutcome> Transfer::followRedirect() {
  if (redirects_ == settings_.mostRedirects) return failed(Code::tooManyRedirects);
  auto target = redirectTarget(url_, check_->location());
  if (!target) return TransferOutcome::failed(std::move(target).error());
  if (Status status = redirectGuard_.checkRedirect(handle_.get(), url_, *target); !status) {
    return TransferOutcome::failed(std::move(status).error());
  }
  ++redirects_;
  isOnFreshConnection_ = false;
  url_ = *std::move(target);
  // Headers for the former URL may be meant for its server alone.
  hostHeaders_.clear();
  isRedirected_ = true;
  return prepare();
}

/// True if a reused connection gave no response, or one that is not HTTP. The server may have been
/// closing the connection, or the bytes may belong to the previous response.
bool Transfer::mayBeTheConnectionsFault(const TransferOutcome& ended) const {
  if (isOnFreshConnection_ || bodyHasBegun_ || !ended.error) return false;
  // Otherwise each stream of an HTTP/2 connection would request a connection of its own.
  if (offersHTTP2() && check_->mayBeHTTP2()) return false;
  const auto code = static_cast<Code>(ended.error->code);
  const bool isLost = code == Code::connectionLost && !check_->hasHeaders();
  if (!isLost && code != Code::malformedResponse) return false;
  return info<long>(handle_.get(), CURLINFO_NUM_CONNECTS) == 0;
}

std::optional<TransferOutcome> Transfer::askOnFreshConnection() {
  isOnFreshConnection_ = true;
  return prepare();
}

/// The disk's error; empty if memory ran out.
std::string Transfer::storageProblem() const {
  if (!sink_.error()) return {};
  std::string problem = "the body could not be stored: " + sink_.error()->localizedDescription();
  if (problem.ends_with('.')) problem.pop_back();
  return problem;
}

/// The outcome of a transfer that libcurl ended with an error. Some result codes have another
/// meaning once the request was sent.
TransferOutcome Transfer::broken(int result) const {
  if (isTooSlow_) return failed(Code::timedOut, "the server sends too slowly");
  const bool wasAsked = info<long>(handle_.get(), CURLINFO_REQUEST_SIZE) > 0;
  const bool systemFailed = info<long>(handle_.get(), CURLINFO_OS_ERRNO) != 0;
  if (wasAsked && result == CURLE_UNSUPPORTED_PROTOCOL) {
    return failed(Code::malformedResponse, "the server's response does not begin as HTTP does");
  }
  const bool isTooLarge = result == CURLE_OUT_OF_MEMORY || result == resultOfTooLarge;
  if (wasAsked && isTooLarge && !check_->hasHeaders()) {
    return failed(Code::malformedResponse, "the server's response has a header that is too large");
  }
  if (check_->hasHeaders() && result == CURLE_RECV_ERROR && !systemFailed) {
    return failed(Code::malformedResponse, "the server's response has a malformed body");
  }
  const Code code = errorCodeForCurlResult(result);
  if (code == Code::secureConnectionFailed) return failed(code, secureConnectionProblem(result));
  if (code == Code::unknown) {
    return failed(code, curl_easy_strerror(static_cast<CURLcode>(result)));
  }
  return failed(code);
}

std::string Transfer::secureConnectionProblem(int result) const {
  if (result != CURLE_PEER_FAILED_VERIFICATION) {
    return curl_easy_strerror(static_cast<CURLcode>(result));
  }
  const auto ofProxy = info<long>(handle_.get(), CURLINFO_PROXY_SSL_VERIFYRESULT);
  if (ofProxy != 0) return certificateProblem("the proxy", message_.data(), ofProxy);
  return certificateProblem("\"" + url_.host() + "\"", message_.data(),
                            info<long>(handle_.get(), CURLINFO_SSL_VERIFYRESULT));
}

TransferOutcome Transfer::failed(Code code, std::string_view what) const {
  return TransferOutcome::failed(transferError(code, url_.absoluteString(), what));
}

EasyHandle Transfer::takeHandle() {
  if (!check_->hasHeaders()) return {};
  setOption(handle_.get(), CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
  return std::move(handle_);
}

}  // namespace kiv
