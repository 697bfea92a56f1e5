#pragma once

#include <exception>
#include <functional>
#include <utility>

namespace kiv {

/// Runs a part of a step; false if it threw, which it does where memory has run out. The manager
/// must not be left busy for good then, nor the process be ended by the end of a step.
template <class Part>
bool contain(const Part& part) noexcept {
  try {
    part();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

/// The same for what has to happen, and may be done twice: tried once more where it threw, since
/// the memory that it had taken is free again.
template <class Part>
void insist(const Part& part) noexcept {
  if (!contain(part)) contain(part);
}

/// The scope of one step of the manager. Steps nest: an operation that is one is made of others.
///
/// Within a step the manager only notes that the list has changed, which files are to go and what
/// observers shall hear. The end of the outermost step saves the list, once, removes the files, and
/// then sends what was noted, in order: so no observer hears of a resource before a list that holds
/// it is on disk, and the cost of the list is paid once for a whole pass.
///
/// Downloads that complete in one turn of the queue share one end too. Nobody can tell: no other
/// job runs before that end, a removal that could change the answer to a question to the disk is
/// carried out before the question (PendingRemovals), and the last download of a pass does not
/// share its end.
class ManagerStep {
 public:
  /// `depth` counts the steps that are open; `end` is called when the outermost one ends.
  ManagerStep(int& depth, std::function<void()> end) : depth_(depth), end_(std::move(end)) {
    ++depth_;
  }
  ManagerStep(const ManagerStep&) = delete;
  ManagerStep& operator=(const ManagerStep&) = delete;
  ~ManagerStep() {
    if (--depth_ == 0) end_();
  }

 private:
  int& depth_;
  const std::function<void()> end_;
};

}  // namespace kiv
