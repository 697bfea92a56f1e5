#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <memory>
#include <optional>

#include "CacheItem.h"

namespace kiv {
class DispatchQueue;
}

/// How far a pass has come.
struct PassProgress {
  qint64 filesDone = 0;
  qint64 files = 0;
  qint64 bytes = 0;
  std::optional<qint64> bytesExpected;  ///< Nothing while a length is unknown.
  double bytesPerSecond = 0;
};

/// What went wrong with one resource, or with the configuration itself.
struct PassFailure {
  QString what;
  QString reason;  ///< In words.
};

/// The window's side of the cache. Drives the manager on a queue of its own, and tells of it by
/// signals on the thread of the window, with plain values: the window never waits for the manager,
/// and never touches a resource that it works on.
///
/// Made on the thread of the application, on which the main queue is drained (QtMainQueue). One
/// session at a time, as there is one manager. Its destruction stops the pass that runs, and waits
/// for what the manager is doing at that moment: storing a file, or unpacking an archive.
class CacheSession final : public QObject {
  Q_OBJECT

 public:
  enum class Pass {
    load,    ///< What is new in the configuration is added.
    update,  ///< And what it does not name goes.
  };

  /// `queue` is the manager's: one with a thread of its own, kiv::DispatchQueue::serial(). Storage
  /// root and servers have been named before. What is cached is announced soon.
  explicit CacheSession(std::shared_ptr<kiv::DispatchQueue> queue);
  ~CacheSession() override;

  /// Starts a pass with the configuration, a local file or an http(s) address. Does nothing while
  /// one runs.
  void start(Pass pass, const QString& configuration);
  /// Has the pass that runs end soon; what is complete stays.
  void stop();
  [[nodiscard]] bool isRunning() const { return isRunning_; }

 signals:
  /// All that is loaded: once at the start, and after every pass.
  void contentsChanged(const QList<CacheItem>& items);
  /// One resource is complete, while a pass runs. It takes the place of the one with its id.
  void itemLoaded(const CacheItem& item);
  void started();
  void progressed(const PassProgress& progress);
  void failed(const PassFailure& failure);
  void ended();

 private:
  friend class CacheWorker;

  std::shared_ptr<kiv::DispatchQueue> queue_;
  std::shared_ptr<class CacheWorker> worker_;  ///< Used in jobs of the queue alone.
  bool isRunning_ = false;
};
