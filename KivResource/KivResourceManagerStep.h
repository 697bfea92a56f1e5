#pragma once

#include <functional>
#include <utility>

#include "KivResource/files/KivResourceCachePlace.h"

namespace kiv {

/// The scope of one step of the manager. Steps nest, since operations call each other.
///
/// Within a step the manager only notes that the list has changed, which files are to be removed,
/// and what observers are to be told. The end of the outermost step saves the list, once, removes
/// the files, and then sends the callbacks in order. So an observer hears of a resource only when a
/// list that holds it is on disk, and a pass writes one list.
///
/// Downloads that complete in one job of the queue share a step (Arrival).
class ManagerStep {
 public:
  /// The step works for the cache of the place. `depth` counts the steps that are open. `begin` is
  /// called when the outermost one begins, and `end` when it ends; neither may throw.
  ManagerStep(const CachePlace* place, int& depth, const std::function<void()>& begin,
              std::function<void()> end)
      : cache_(place), depth_(depth), end_(std::move(end)) {
    if (++depth_ == 1) begin();
  }
  ManagerStep(const ManagerStep&) = delete;
  ManagerStep& operator=(const ManagerStep&) = delete;
  ~ManagerStep() {
    if (--depth_ == 0) end_();
  }

 private:
  const CacheInUse cache_;
  int& depth_;
  const std::function<void()> end_;
};

}  // namespace kiv
