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
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"
#include "KivPlatform/KivRESTService/curl/CurlHandles.h"
#include "KivPlatform/KivRESTService/curl/RedirectGuard.h"
#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/BodySink.h"
#include "KivPlatform/KivRESTService/policy/AttemptResult.h"

namespace kiv {

/// One try to get a file from one server, through the redirects to which the server leads. Used by
/// one thread at a time.
class Transfer {
 public:
  /// `handle` is one that another transfer of the same client has left, or empty; `settings`,
  /// `spool` and `buffers` must outlive the transfer, which reads `readSize` bytes at one time.
  Transfer(URL url, const KivRESTServiceSettings& settings, SpoolDirectory& spool,
           BodyBuffers& buffers, std::int64_t readSize, EasyHandle handle);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  /// Makes a handle ready to run. How the try ends where that failed; otherwise nothing.
  std::optional<TransferOutcome> prepare();
  /// The handle to run.
  [[nodiscard]] void* handle() const noexcept { return handle_.get(); }
  /// Lets no more than that many bytes a second come in from now on; 0 for any number.
  void limitSpeed(std::int64_t bytesPerSecond);
  /// The bytes of responses, headers and bodies of any kind, that have come since this was last
  /// called. To be called on the thread that runs the handle.
  std::int64_t takeBytesCome() noexcept {
    return bytesCome_ - std::exchange(bytesTaken_, bytesCome_);
  }
  /// The same of the whole try.
  [[nodiscard]] std::int64_t bytesCome() const noexcept { return bytesCome_; }
  /// The try is to end while its request runs: keeps for another one what has come of the body, in
  /// memory too, as far as it can be continued.
  void keepPart() { sink_.keep(); }
  /// The request, which ends like one that ran into a time-out, was too slow.
  void noteTooSlow() noexcept { isTooSlow_ = true; }
  /// To be called when the handle has run, with its result code. Nothing where there is another
  /// request to make: the server redirects elsewhere, or has to be asked once more on a connection
  /// of its own. The handle, which may be another one, is then ready to run.
  std::optional<AttemptResult> finish(int result);

  /// Bytes of the body that are here, and those that there will be, as far as the server told. May
  /// be called from any thread.
  [[nodiscard]] std::int64_t bytesReceived() const noexcept { return received_; }
  [[nodiscard]] std::optional<std::int64_t> bytesExpected() const noexcept;
  /// True when the server has begun to send the file. May be called from any thread.
  [[nodiscard]] bool bodyHasBegun() const noexcept { return bodyHasBegun_; }

  /// Gives the handle back for another transfer; empty where its last request got no response, for
  /// then libcurl may leave it in a state in which it takes no options. Nothing else may follow.
  EasyHandle takeHandle();

 private:
  static constexpr std::int64_t unknown = -1;

  static std::size_t takeHeader(char* bytes, std::size_t size, std::size_t count, void* transfer);
  static std::size_t takeBody(char* bytes, std::size_t size, std::size_t count, void* transfer);
  static int endTurn(void* transfer, std::int64_t, std::int64_t, std::int64_t, std::int64_t);

  void startOver();
  [[nodiscard]] ResponseCheck::OpenEnds openEnds() const;
  bool setOptions();
  bool setRequest();
  bool setRange();
  void noteLengths() noexcept;
  bool takeHeaderLine(std::string_view line);
  bool beginBody();

  std::optional<TransferOutcome> outcome(int result);
  std::optional<TransferOutcome> followRedirect();
  [[nodiscard]] bool mayBeTheConnectionsFault(const TransferOutcome& ended) const;
  std::optional<TransferOutcome> askOnFreshConnection();
  void describe(AttemptResult& tried);
  void settlePart(AttemptResult& tried);
  TransferOutcome finishBody();
  [[nodiscard]] std::string storageProblem() const;
  [[nodiscard]] TransferOutcome broken(int result) const;
  [[nodiscard]] std::string secureConnectionProblem(int result) const;
  [[nodiscard]] TransferOutcome failed(KivRESTServiceErrorCode code,
                                       std::string_view what = {}) const;

  const KivRESTServiceSettings& settings_;
  const std::int64_t readSize_;
  std::array<char, 256> message_{};  // libcurl's own, of what went wrong
  EasyHandle handle_;
  HeaderList headers_;
  URL url_;
  BodySink sink_;
  std::optional<RangeAsked> range_;
  int redirects_ = 0;
  RedirectGuard redirectGuard_;
  std::optional<ResponseCheck> check_;
  bool isOnFreshConnection_ = false;  // as it was asked to be
  std::int64_t bytesCome_ = 0;
  std::int64_t bytesTaken_ = 0;
  bool isTooSlow_ = false;
  std::atomic<bool> bodyHasBegun_ = false;
  bool cannotStore_ = false;  // memory or disk gave out
  std::atomic<std::int64_t> received_ = 0;
  std::atomic<std::int64_t> expected_ = unknown;
};

}  // namespace kiv
