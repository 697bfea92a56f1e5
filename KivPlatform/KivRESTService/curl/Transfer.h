#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceRequest.h"
#include "KivPlatform/KivRESTService/KivRESTServiceValidators.h"
#include "KivPlatform/KivRESTService/curl/CurlHandles.h"
#include "KivPlatform/KivRESTService/curl/RedirectGuard.h"
#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/BodySink.h"
#include "KivPlatform/KivRESTService/policy/AttemptResult.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {

/// One attempt to get a file from one server, redirects included. Used by one thread at a time.
class Transfer {
 public:
  /// `handle` is a reused one of the same client, or empty. `readSize` is the receive buffer size
  /// in bytes, and `mayUseHTTP2` tells whether HTTP/2 is offered to https servers. `validators` are
  /// those of the tasks, or nullptr. They, `settings`, `spool` and `buffers` must outlive the
  /// transfer.
  Transfer(URL url, const TransferSettings& settings, SpoolDirectory& spool, BodyBuffers& buffers,
           std::int64_t readSize, bool mayUseHTTP2, EasyHandle handle,
           const KivRESTServiceValidators* validators = nullptr);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  /// Sets the host's headers for the next request. To be called before prepare(). A redirect drops
  /// them.
  void setHeaders(KivRESTServiceRequest::Headers headers);
  /// Prepares the handle. Returns the outcome of the attempt if that failed; otherwise nothing.
  std::optional<TransferOutcome> prepare();
  /// The handle to run.
  [[nodiscard]] void* handle() const noexcept { return handle_.get(); }
  /// Limits the speed from now on, in bytes per second; 0 for no limit.
  void limitSpeed(std::int64_t bytesPerSecond);
  /// The bytes of headers and bodies received since the last call. To be called on the thread that
  /// runs the handle.
  std::int64_t takeBytesCome() noexcept {
    return bytesCome_ - std::exchange(bytesTaken_, bytesCome_);
  }
  /// The same for the whole attempt.
  [[nodiscard]] std::int64_t totalBytesReceived() const noexcept { return bytesCome_; }
  /// To be called before the attempt is ended early: keeps the received part of the body if it can
  /// be resumed.
  void keepPart() { sink_.keep(); }
  /// Marks the request as too slow, before it is ended with a time-out.
  void noteTooSlow() noexcept { isTooSlow_ = true; }
  /// The local port of the connection, which identifies it, if it may be an HTTP/2 connection that
  /// other requests share.
  [[nodiscard]] std::optional<long> sharedConnection() const;
  /// To be called before finish(): sharedConnection(), if the result code says that the connection
  /// has ended.
  [[nodiscard]] std::optional<long> endedConnection(int result) const;
  /// To be called before finish(): the origin, if the result code says that no connection to it
  /// could be made, and other requests may have waited for that connection.
  [[nodiscard]] std::optional<std::string> unmadeConnection(int result) const;
  /// The origin of the request if it may share an HTTP/2 connection.
  [[nodiscard]] std::optional<std::string> sharedOrigin() const;
  /// True once the request has a connection, with TLS.
  [[nodiscard]] bool hasConnection() const noexcept { return redirectGuard_.hasConnection(); }
  /// To be called instead of finish() for a request that did not run, because it waited for a
  /// connection that could not be made. `result` is that of the request that tried.
  [[nodiscard]] AttemptResult shareFailure(int result) const;
  /// True if the next request follows a redirect, and setHeaders() was not called for it yet.
  [[nodiscard]] bool isRedirected() const noexcept { return isRedirected_; }
  /// The URL of the current or next request.
  [[nodiscard]] const URL& url() const noexcept { return url_; }
  [[nodiscard]] int redirects() const noexcept { return redirects_; }
  /// To be called instead of running the next request if the host refuses it. `why` is the reason,
  /// or empty.
  [[nodiscard]] AttemptResult refuse(std::string_view why) const;
  /// To be called when the handle has run, with its result code. Returns nothing if another request
  /// follows, for a redirect or on a new connection: handle(), which may have changed, is then
  /// ready to run.
  std::optional<AttemptResult> finish(int result);

  /// The bytes of the body received so far, and those expected, if known. Thread-safe.
  [[nodiscard]] std::int64_t bytesReceived() const noexcept { return received_; }
  [[nodiscard]] std::optional<std::int64_t> bytesExpected() const noexcept;
  /// True once the body has begun to arrive. Thread-safe.
  [[nodiscard]] bool bodyHasBegun() const noexcept { return bodyHasBegun_; }

  /// Returns the handle for reuse. Empty if its last request got no response, since libcurl may
  /// then leave it in a state in which it accepts no options. Nothing may be called afterwards.
  EasyHandle takeHandle();

 private:
  static constexpr std::int64_t unknown = -1;

  static std::size_t takeHeader(char* bytes, std::size_t size, std::size_t count, void* transfer);
  static std::size_t takeBody(char* bytes, std::size_t size, std::size_t count, void* transfer);
  static int flushBody(void* transfer, std::int64_t, std::int64_t, std::int64_t, std::int64_t);

  void startOver();
  [[nodiscard]] ResponseCheck::OpenEnds openEnds() const;
  bool setOptions();
  [[nodiscard]] bool offersHTTP2() const { return mayUseHTTP2_ && url_.scheme() == "https"; }
  bool setRequest();
  bool setVersion();
  bool setRange();
  bool setHeaderList();
  [[nodiscard]] std::string conditionHeader() const;
  void publishLengths() noexcept;
  bool takeHeaderLine(std::string_view line);
  bool beginBody();

  std::optional<TransferOutcome> outcome(int result);
  void returnValidators(TransferOutcome& outcome) const;
  std::optional<TransferOutcome> followRedirect();
  [[nodiscard]] bool mayBeTheConnectionsFault(const TransferOutcome& ended) const;
  std::optional<TransferOutcome> askOnFreshConnection();
  void describe(AttemptResult& tried);
  void describeLine(AttemptResult& tried) const;
  [[nodiscard]] bool hasFailedOverHTTP2(const AttemptResult& tried) const;
  void keepOrDiscardPart(AttemptResult& tried);
  TransferOutcome finishBody();
  [[nodiscard]] std::string storageProblem() const;
  [[nodiscard]] TransferOutcome broken(int result) const;
  [[nodiscard]] std::string secureConnectionProblem(int result) const;
  [[nodiscard]] TransferOutcome failed(KivRESTServiceErrorCode code,
                                       std::string_view what = {}) const;

  const TransferSettings& settings_;
  const std::int64_t readSize_;
  const bool mayUseHTTP2_;
  std::array<char, 256> message_{};  // libcurl's error message
  EasyHandle handle_;
  KivRESTServiceRequest::Headers hostHeaders_;
  HeaderList headers_;
  URL url_;
  const KivRESTServiceValidators* const validators_;
  bool isConditional_ = false;  // the current request
  BodySink sink_;
  std::optional<RequestedRange> range_;
  int redirects_ = 0;
  bool isRedirected_ = false;
  RedirectGuard redirectGuard_;
  std::optional<ResponseCheck> check_;
  bool isOnFreshConnection_ = false;  // the request is repeated on one
  std::int64_t bytesCome_ = 0;
  std::int64_t bytesTaken_ = 0;
  bool isTooSlow_ = false;
  std::atomic<bool> bodyHasBegun_ = false;
  bool cannotStore_ = false;  // no memory or disk space was left
  std::atomic<std::int64_t> received_ = 0;
  std::atomic<std::int64_t> expected_ = unknown;
};

}  // namespace kiv
