#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>

#include "CacheItem.h"
#include "PassSummary.h"
#include "Upkeep.h"

namespace kiv {
class DispatchQueue;
}

/// The window's interface to the cache. It uses the manager on a separate queue and emits signals
/// with plain values on the window's thread, so that the window neither waits for the manager nor
/// touches a resource that the manager works on.
///
/// Create it on the application's thread, which drains the main queue (QtMainQueue). One session at
/// a time, since there is one manager. The destructor stops a running pass and waits for the
/// manager's current job, which may store a file or unpack an archive.
class CacheSession final : public QObject {
  Q_OBJECT

 public:
  enum class Pass {
    load,    ///< What is new in the configuration is added.
    update,  ///< And what it does not name goes.
  };

  /// `queue` is the manager's, from kiv::DispatchQueue::serial(). Storage root and servers must be
  /// set before. The cached items are announced asynchronously.
  explicit CacheSession(std::shared_ptr<kiv::DispatchQueue> queue);
  ~CacheSession() override;

  /// Starts a pass with the configuration, a local file or an http(s) URL. Does nothing while a
  /// pass is running.
  void start(Pass pass, const QString& configuration);
  /// Stops the running pass, and a check of the stored files. Complete resources stay.
  void stop();
  [[nodiscard]] bool isRunning() const { return isRunning_; }

  /// Pauses the downloads of this and later passes, and continues them where they were.
  void setPaused(bool isPaused);

  /// Updates the cache now and every hour from the configuration at the address, until another call
  /// or stopFollowing(). Each time the signal `checked` comes.
  void follow(const QString& address);
  /// Also stops an update that runs.
  void stopFollowing();
  [[nodiscard]] bool isFollowing() const { return isFollowing_; }

  /// Asks the servers whether stored files have changed under their names, and fetches those that
  /// have. The signal `revalidated` comes at the end. Does nothing while such a check is running.
  void revalidate();
  [[nodiscard]] bool isRevalidating() const { return isRevalidating_; }

  /// Tells by `spacePlanned` what freeSpace() would remove; the latter tells by `spaceFreed`.
  void planSpace(const SpaceBound& bound);
  void freeSpace(const SpaceBound& bound);

 signals:
  /// All loaded items: emitted at the start, and after each operation that may change them.
  void contentsChanged(const QList<CacheItem>& items);
  /// A resource was completed during a pass. It replaces the item with the same id.
  void itemLoaded(const CacheItem& item);
  void started();
  void progressed(const PassProgress& progress);
  /// During a pass. Its summary has all failures again, with the tries.
  void failed(const PassFailure& failure);
  void ended(const PassSummary& summary);
  void checked(const PassSummary& summary);
  void revalidating();
  void revalidated(const PassSummary& summary);
  void spacePlanned(const SpaceSummary& summary);
  void spaceFreed(const SpaceSummary& summary);

 private:
  friend class CacheWorker;

  /// Runs the function with the worker on the manager's queue.
  void perform(std::function<void(class CacheWorker&)> job) const;

  std::shared_ptr<kiv::DispatchQueue> queue_;
  std::shared_ptr<class CacheWorker> worker_;  ///< Used in jobs of the queue alone.
  bool isRunning_ = false;
  bool isFollowing_ = false;
  bool isRevalidating_ = false;
};
