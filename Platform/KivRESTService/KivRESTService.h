#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/KivRESTService/KivRESTServiceSettings.h"
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
  outOfResources = 12,      ///< No memory, descriptors or disk left for the transfer.
  unsupportedRequest = 13,  ///< No request, or one with another method than GET.
};

/// The HTTP client: performs GET tasks asynchronously, several at a time, and falls back to each
/// task's mirrors.
///
/// A client has one transfer thread, which starts with the first task. It remembers the queue on
/// which it was created (the main queue where there is none) and calls every completion there, one
/// at a time. Its operations may be called from any thread; the tasks they hand over or out belong
/// to that queue. Its destruction cancels every task and waits for the transfer thread, which takes
/// no longer than that thread needs to let go of its connections. When the process exits, the
/// transfers of a client that still lives are stopped, and nothing is completed any more.
///
/// A body is handed on only where it is known to be whole: its length was told, or its end was
/// marked, or it came over HTTP/1.0, where the end of the connection is all that marks it. A body
/// of unknown length over HTTP/1.1, one with a content coding that was not asked for, and one with
/// contradicting lengths are transfer errors.
///
/// Redirects are followed, at most as many as the settings say, only to http and https, and never
/// from https to http.
///
/// The operations are virtual so that another client can stand in for it.
class KIV_EXPORT KivRESTService {
 public:
  KivRESTService();
  explicit KivRESTService(KivRESTServiceSettings settings);
  virtual ~KivRESTService();
  KivRESTService(const KivRESTService&) = delete;
  KivRESTService& operator=(const KivRESTService&) = delete;

  /// Takes the task over and runs it. Tasks start in order of priority, the largest first, and
  /// among equals in order of queuing. A task that the client holds already is not queued again.
  ///
  /// The servers are tried in order, the request's own first, until one answers with status 200. A
  /// task ends with the first 200 and its body, which may be empty; else with the response, without
  /// a body, that the earliest server in the list gave; else with the transfer error of the
  /// request's own server. It always ends later, on the client's queue, also where nothing could be
  /// tried: it leaves currentQueue(), and then its completion handler is called.
  virtual void queue(std::shared_ptr<KivRESTServiceTask> task);

  /// The tasks that the client holds now, in order of queuing: waiting, running, or ended with
  /// their completion still to come.
  [[nodiscard]] virtual std::vector<std::shared_ptr<KivRESTServiceTask>> currentQueue() const;

  /// Cancels every task that the client holds: their transfers stop at once, and none of them is
  /// completed any more. Their completion handlers are let go of: before this returns where it is
  /// called on the client's queue, otherwise by a job of that queue.
  virtual void cancelAllTasks();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};
