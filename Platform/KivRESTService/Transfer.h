#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Platform/Foundation/URL.h"
#include "Platform/KivRESTService/CurlHandles.h"
#include "Platform/KivRESTService/KivRESTServiceSettings.h"
#include "Platform/KivRESTService/ResponseCheck.h"
#include "Platform/KivRESTService/TransferJob.h"

namespace kiv {

/// One try to get a file from one server, through the redirects to which the server leads. Belongs
/// to the transfer thread.
class Transfer {
 public:
  /// `handle` must not be empty; `settings` must outlive the transfer.
  Transfer(URL url, const KivRESTServiceSettings& settings, EasyHandle handle);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  /// Makes the handle ready to run; false where that failed.
  bool prepare();
  /// The handle to run.
  [[nodiscard]] void* handle() const noexcept { return handle_.get(); }
  /// To be called when the handle has run, with its result code. Nothing where the server redirects
  /// elsewhere: the handle is then ready to run again.
  std::optional<TransferOutcome> finish(int result);

  /// Gives the handle back for another transfer. Nothing else may follow.
  EasyHandle takeHandle();

 private:
  static std::size_t takeHeader(char* bytes, std::size_t size, std::size_t count, void* transfer);
  static std::size_t takeBody(char* bytes, std::size_t size, std::size_t count, void* transfer);

  bool setOptions();
  bool setSecurityOptions();
  void reserveBody();
  void startOver();
  std::optional<TransferOutcome> finishAnswered();
  std::optional<TransferOutcome> followRedirect();
  [[nodiscard]] TransferOutcome broken(int result) const;
  [[nodiscard]] TransferOutcome failed(KivRESTServiceErrorCode code,
                                       std::string_view what = {}) const;

  const KivRESTServiceSettings& settings_;
  EasyHandle handle_;
  URL url_;
  int redirects_ = 0;
  std::optional<ResponseCheck> check_;
  std::string body_;
  bool outOfMemory_ = false;
};

}  // namespace kiv
