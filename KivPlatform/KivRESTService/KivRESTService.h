#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivRESTService/KivRESTServiceMetrics.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"
#include "KivPlatform/KivRESTService/KivRESTServiceTask.h"

namespace kiv {
struct TransferSettings;
}

/// The HTTP client: performs GET tasks asynchronously, several at a time, falls back to each task's
/// mirrors, and tries again what failed for a reason that may pass.
///
/// A client has transfer threads of its own, which start when there are tasks. It remembers the
/// queue on which it was created (the main queue where there is none) and calls every completion
/// there, one at a time. Its operations may be called from any thread; the tasks they hand over or
/// out belong to that queue. Its destruction cancels every task and waits for the transfer threads,
/// which takes no longer than they need to let go of their connections. When the process exits, the
/// transfers of a client that still lives are stopped, and nothing is completed any more.
///
/// A client that was made before a fork belongs to the parent process, whose transfers continue. In
/// the child every task that is queued with it ends with the error forkedProcess, and neither its
/// destruction nor the end of the child stops anything. A child makes a client of its own.
///
/// Where memory runs out on a transfer thread, every task that is held ends with the error
/// outOfResources, and the client can be used further.
///
/// A body is handed on only if it is known to be whole: its length was told, or its end was
/// marked, or it came over HTTP/1.0, where the end of the connection is all that marks it. A body
/// of unknown length over HTTP/1.1, one with a content coding that was not asked for, and one with
/// contradicting lengths are transfer errors.
///
/// Redirects are followed, at most as many as the settings say, only to http and https, and never
/// from https to http.
///
/// Tasks for the same URLs that are held at one time share one transfer; each is completed. A body
/// that is too large for memory goes to a file in the spool directory, if one is named, and the
/// task's data is that file. What has come of one that did not come whole stays there, also when
/// its task is cancelled or the process ends, and the next try for that URL, by whatever client or
/// process, asks the server for the rest, provided that it is still the same version of the file.
///
/// The operations are virtual so that another client can stand in for it.
class KIV_EXPORT KivRESTService {
 public:
  /// A client with the default settings.
  KivRESTService();
  explicit KivRESTService(KivRESTServiceSettings settings);
  /// For the framework's own tests, which shorten the times that hosts cannot set.
  explicit KivRESTService(const kiv::TransferSettings& settings);
  virtual ~KivRESTService();
  KivRESTService(const KivRESTService&) = delete;
  KivRESTService& operator=(const KivRESTService&) = delete;

  /// Takes the task over and runs it. Tasks start in order of priority, the largest first, and
  /// among equals in order of queuing. A task that the client holds already is not queued again.
  ///
  /// The servers are tried in order, the request's own first, until one answers with status 200;
  /// those that could not be reached a short while ago come last. One that failed for a reason that
  /// may pass (a refused or broken connection, a time-out, the statuses 408, 429, 500, 502, 503 and
  /// 504) is tried again after a wait, as often as the settings say. A task ends with the first 200
  /// and its body, which may be empty; else with the last response, without a body, of the earliest
  /// server in the list that gave one; else with the transfer error of the request's own server:
  /// this does not depend on the order in which they were tried. It always ends later, on the
  /// client's queue, also if nothing could be tried: it leaves currentQueue(), and then its
  /// completion handler is called.
  virtual void queue(std::shared_ptr<KivRESTServiceTask> task);

  /// The tasks that the client holds now, in order of queuing: waiting, running, or ended with
  /// their completion still to come.
  [[nodiscard]] virtual std::vector<std::shared_ptr<KivRESTServiceTask>> currentQueue() const;

  /// Cancels every task that the client holds: their transfers stop at once, and none of them is
  /// completed any more. Their completion handlers are let go of: before this returns where it is
  /// called on the client's queue, otherwise by a job of that queue.
  virtual void cancelAllTasks();

  /// Called on the client's queue, at most ten times a second, while tasks are held, and once when
  /// the last has ended. Each call has the state of that moment; what a slow queue has missed is
  /// not made up for. An empty handler removes it.
  void setProgressHandler(std::function<void(const KivRESTServiceProgress& progress)> handler);
  /// Called on the client's queue for each task that has ended, before its completion: outcome and
  /// metrics are set. Not called for cancelled tasks. An empty handler removes it.
  void setEndHandler(std::function<void(const KivRESTServiceTask& task)> handler);

  /// The settings in use.
  [[nodiscard]] KivRESTServiceSettings settings() const;
  /// Names the spool directory of this client. To be called before the first task is queued.
  void setSpoolDirectory(std::string path);

  /// The settings of clients that are made without any from now on; that of the framework's
  /// manager is one of them. May be called from any thread.
  static KivRESTServiceSettings defaultSettings();
  static void setDefaultSettings(KivRESTServiceSettings settings);

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};
