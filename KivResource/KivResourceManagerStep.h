#pragma once

#include "KivResource/KivResourceManager.h"

/// The scope of one step of the manager. Steps nest: an operation that is one is made of others.
///
/// Within a step the manager only notes that the list has changed and what observers shall hear.
/// The end of the outermost step saves the list, once, and then sends what was noted, in order: so
/// no observer hears of a resource before a list that holds it is on disk, and the cost of the list
/// is paid once for a whole pass. Completions of downloads that wait in the manager's queue
/// together share one end too.
class KivResourceManager::Step {
 public:
  enum class End {
    now,
    withOthers,  ///< Where a job of a queue runs: after the jobs that wait there already.
  };

  explicit Step(KivResourceManager& manager, End end = End::now) : manager_(manager), end_(end) {
    ++manager_.stepDepth_;
  }
  Step(const Step&) = delete;
  Step& operator=(const Step&) = delete;
  ~Step() {
    if (--manager_.stepDepth_ > 0) return;
    if (end_ == End::withOthers) {
      manager_.endStepLater();
    } else {
      manager_.endStep();
    }
  }

 private:
  KivResourceManager& manager_;
  const End end_;
};
