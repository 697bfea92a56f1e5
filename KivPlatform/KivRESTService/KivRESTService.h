#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"
#include "KivPlatform/KivRESTService/KivRESTServiceRequest.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"
#include "KivPlatform/KivRESTService/KivRESTServiceTask.h"

namespace kiv {
struct TransferSettings;
}

/// The HTTP client: performs GET tasks asynchronously, several at a time, falls back to each task's
/// mirrors, and retries failures that may pass.
///
/// A client has its own transfer threads, which start when there are tasks. The client's queue is
/// the one on which it was created, or the main queue: all completions are called there, one at a
/// time. The operations may be called from any thread, but a task that a client holds is used on
/// the client's queue alone. The destructor cancels all tasks and waits for the transfer threads to
/// close their connections. When the process exits, running transfers are stopped, and no further
/// completion is called.
///
/// A client that was created before a fork belongs to the parent process, whose transfers continue.
/// In the child, each task queued with it ends with the error forkedProcess, and its destructor
/// stops nothing. A child has to create its own client.
///
/// If memory runs out on a transfer thread, all tasks held end with the error outOfResources. The
/// client stays usable.
///
/// A body is accepted only if it is complete: it has a length, or is chunked, or came over HTTP/1.0
/// without TLS, where the end of the connection is the end of the body. Transfer errors are: any
/// other body of unknown length, unless KivRESTServiceSettings::takesBodiesWithoutLength permits
/// it; a content coding that was not requested; and contradicting lengths.
///
/// At most ten redirects are followed, only to http and https, and never from https to http.
///
/// Tasks with the same URLs and validators that are held at the same time share one transfer; each
/// is completed. A body that is too large for memory goes to a file in the spool directory, if one
/// is set, and the task's data is that file. Partial bodies stay there, even when the task is
/// cancelled or the process ends. The next attempt for the URL, by any client or process, requests
/// the rest, if the file on the server is still the same version.
///
/// The operations are virtual so that a host or a test can replace the client.
class KIV_EXPORT KivRESTService {
 public:
  /// A client with the default settings.
  KivRESTService();
  explicit KivRESTService(KivRESTServiceSettings settings);
  /// For the framework's own tests, which shorten times that hosts cannot set.
  explicit KivRESTService(const kiv::TransferSettings& settings);
  virtual ~KivRESTService();
  KivRESTService(const KivRESTService&) = delete;
  KivRESTService& operator=(const KivRESTService&) = delete;

  /// Runs the task, which the client holds until it has ended. Tasks start by priority, highest
  /// first, and equal ones in the order of queuing. A task that the client already holds is not
  /// queued again.
  ///
  /// The servers are tried in order, the request's own first, until one answers with status 200;
  /// servers that were unreachable a short while ago come last. After a retryable failure (a
  /// refused or broken connection, a time-out, the statuses 408, 429, 500, 502, 503 and 504) a
  /// server is tried again after a wait, as often as the settings allow. A task ends with the first
  /// 200 and its body, which may be empty; otherwise with the response, without its body, of the
  /// earliest server in the list whose last attempt got one; otherwise with the transfer error of
  /// the earliest server that was tried. If the task has validators, a 304 to a conditional request
  /// ends it as a 200 does. It ends asynchronously on the client's queue, even if nothing could be
  /// tried: it leaves currentQueue(), and then its completion handler is called.
  virtual void queue(std::shared_ptr<KivRESTServiceTask> task);

  /// The tasks that the client holds now, in the order of queuing: waiting, running, or ended and
  /// not yet completed.
  [[nodiscard]] virtual std::vector<std::shared_ptr<KivRESTServiceTask>> currentQueue() const;

  /// Cancels all tasks that the client holds: their transfers stop, and their completions are never
  /// called. The completion handlers are released before this returns if it is called on the
  /// client's queue, otherwise by a job of that queue.
  virtual void cancelAllTasks();

  /// Pauses the client: running transfers stop, and none starts, until resume(). It takes effect
  /// within the next iteration of each transfer thread, usually within milliseconds; tasks whose
  /// transfers have ended by then are still completed. All others wait. Received bytes are kept as
  /// when a connection breaks, and resume() requests the rest. A body without a validator starts
  /// over, as do all bodies if there is no spool directory. A pause is not a failed attempt. It
  /// extends the deadline and does not change the metrics' number of tries.
  ///
  /// Tasks may be queued and cancelled meanwhile; the client stays paused until resume(). Pausing a
  /// paused client has no effect, nor has resuming a client that is not paused. A client of a
  /// parent process is never paused. All three may be called from any thread.
  virtual void pause();
  virtual void resume();
  [[nodiscard]] virtual bool isPaused() const;

  /// Sets KivRESTServiceSettings::bandwidth, in bytes per second, including that of running
  /// transfers; 0 or less for no limit. If the limit is lower than before, running transfers are
  /// stopped and continued at once, as by pause() and resume(). May be called from any thread.
  virtual void setBandwidth(std::int64_t bytesPerSecond);

  /// Returns whether a transfer of the task may start now from that URL: the request's or a
  /// mirror's.
  using StartCondition = std::function<bool(const KivRESTServiceTask& task, const kiv::URL& url)>;
  /// Sets a condition for starting transfers, for example that the network is not metered. It is
  /// called on the client's queue before each attempt at a server, including retries and
  /// continuations after pause(), but not for redirects. A task for which it returns false waits,
  /// without a time limit, until startConditionChanged() or another condition; others continue. For
  /// tasks that share a transfer it is called once, with the task queued first. Running transfers
  /// are not affected; see pause().
  ///
  /// While a call waits for the queue, it takes one of the `parallelTransfers`. A condition that
  /// throws counts as false, and the queue logs the exception. It may call any operation of the
  /// client, and destroy it. An empty condition allows everything. A former condition may still run
  /// while this returns; its results are ignored. May be called from any thread.
  virtual void setStartCondition(StartCondition condition);
  /// To be called when the condition may return another result than before: it is called again for
  /// each task that waits for it, when it is the task's turn. May be called from any thread.
  virtual void startConditionChanged();

  /// Receives a request before it is sent, and answers it: with headers to add, or with a refusal.
  using RequestHandler = std::function<void(KivRESTServiceRequest request)>;
  /// Sets a handler that adds headers to requests, such as a token. It is called on the client's
  /// queue before each request: for each attempt at a server, including retries and continuations
  /// after pause(), and for each redirect. It may keep the request and answer later, from any
  /// thread. The headers go into that request only; if a reused connection loses the request, it is
  /// repeated with the same ones.
  ///
  /// It is called after the start condition, and once for tasks that share a transfer. While a
  /// request waits for a later answer, it takes a place at its server, but none of the
  /// `parallelTransfers`. Once answered, it starts before other tasks. Tasks of a higher priority
  /// do not wait for it: a host that loads its token with the same client must give that task one.
  /// The file's deadline runs meanwhile. A pause, a lower bandwidth or another handler ends the
  /// wait: the handler is called again for the request, and the former answer has no effect. If the
  /// handler throws and keeps no copy of the request, that refuses it; the queue logs the
  /// exception. It may call any operation of the client, and destroy it.
  ///
  /// Neither the names nor the values of headers appear in a log, an error, the metrics, or on the
  /// disk. With an empty handler, all requests are sent without further headers. A former handler
  /// may still run while this returns. Requests that were already sent are not affected. May be
  /// called from any thread.
  virtual void setRequestHandler(RequestHandler handler);

  /// Sets a handler that is called on the client's queue, at most ten times a second while tasks
  /// are held, and once after the last has ended. A slow queue misses intermediate states. An empty
  /// handler removes it.
  virtual void setProgressHandler(
      std::function<void(const KivRESTServiceProgress& progress)> handler);
  /// Sets a handler that is called on the client's queue for each task that has ended, before its
  /// completion, with outcome and metrics set; not for cancelled tasks. An empty handler removes
  /// it.
  virtual void setEndHandler(std::function<void(const KivRESTServiceTask& task)> handler);

  /// The settings in use.
  [[nodiscard]] virtual KivRESTServiceSettings settings() const;
  /// Sets the spool directory of this client, an absolute path. Call it before the first task is
  /// queued.
  virtual void setSpoolDirectory(std::string path);

  /// The settings of clients that are created without any from now on, such as that of the
  /// framework's manager. May be called from any thread.
  static KivRESTServiceSettings defaultSettings();
  static void setDefaultSettings(KivRESTServiceSettings settings);

  /// Initialises the libraries that transfers use; otherwise the first transfer does. A host that
  /// uses a client on a thread of its own, and ends that thread in an atexit handler, must call
  /// this before it registers the handler, so that the handler runs before those of the libraries.
  /// Returns false if they cannot be initialised. May be called from any thread.
  static bool initializeLibraries() noexcept;

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};
