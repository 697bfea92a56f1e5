#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/KivRESTService/KivRESTServiceTask.h"

/// Domain of the transfer errors; their codes are those of KivRESTServiceErrorCode.
inline constexpr std::string_view KivRESTServiceErrorDomain = "kiv.KivRESTService";

/// Why a transfer failed. The numbers are stable: new ones are added at the end.
enum class KivRESTServiceErrorCode : int {
  unknown = 1,
  unsupportedURL = 2,  ///< No scheme, no host, or a scheme other than http and https.
  cannotResolveHost = 3,
  cannotConnect = 4,
  timedOut = 5,                ///< The connection took too long, or no bytes came for too long.
  connectionLost = 6,          ///< The connection broke, or ended before the body was whole.
  malformedResponse = 7,       ///< The answer is no proper HTTP, or contradicts itself.
  secureConnectionFailed = 8,  ///< TLS failed, or the certificate is not to be trusted.
  tooManyRedirects = 9,
  refusedRedirect = 10,  ///< A redirect to another scheme, or from https to http.
  bodyTooLarge = 11,
  outOfResources = 12,  ///< No memory, descriptors or disk left for the transfer.
};

/// The HTTP client: performs GET tasks asynchronously, several at a time, and falls back to each
/// task's mirrors.
///
/// A client has one transfer thread, which starts with the first task. It remembers the queue on
/// which it was created (the main queue where there is none) and calls every completion there, one
/// at a time. Its operations may be called from any thread; the tasks they hand over or out belong
/// to that queue. Its destruction cancels every task.
///
/// The operations are virtual so that another client can stand in for it.
class KIV_EXPORT KivRESTService {
 public:
  KivRESTService();
  virtual ~KivRESTService();
  KivRESTService(const KivRESTService&) = delete;
  KivRESTService& operator=(const KivRESTService&) = delete;

  /// Takes the task over and runs it. Tasks start in order of priority, the largest first, and
  /// among equals in order of queuing.
  ///
  /// The servers are tried in order, the request's own first, until one answers with status 200. A
  /// task ends with the first 200 and its body; else with the response that the earliest server in
  /// the list gave; else with the transfer error of the request's own server.
  virtual void queue(std::shared_ptr<KivRESTServiceTask> task);

  /// The tasks that the client holds now: waiting, running, or ended with their completion still
  /// to come.
  [[nodiscard]] virtual std::vector<std::shared_ptr<KivRESTServiceTask>> currentQueue() const;

  /// Cancels every task that the client holds: none of them is completed any more.
  virtual void cancelAllTasks();

 private:
  class Implementation;
  std::shared_ptr<Implementation> implementation_;
};
