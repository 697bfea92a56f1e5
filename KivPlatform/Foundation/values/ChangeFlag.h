#pragma once

#include <atomic>
#include <memory>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// Set by objects that have changed, and cleared by whoever keeps something that was derived from
/// them, such as an index. Thread-safe.
class ChangeFlag {
 public:
  void set() noexcept { isSet_.store(true, std::memory_order_release); }
  /// Clears the flag; true if it was set.
  bool clear() noexcept {
    return isSet_.load(std::memory_order_relaxed) &&
           isSet_.exchange(false, std::memory_order_acquire);
  }

 private:
  std::atomic<bool> isSet_{false};
};

/// The flags that one object sets whenever it changes. They are held weakly: a flag that nobody
/// else holds any more is dropped. Nearly always there is one, which takes no allocation. Not
/// thread-safe.
class KIV_EXPORT ChangeFlags {
 public:
  /// Has set() set this flag, too. Nothing happens if it does already.
  void add(const std::shared_ptr<ChangeFlag>& flag);
  /// The same for each flag of the others.
  void add(const ChangeFlags& others);
  void set() const noexcept;

 private:
  std::weak_ptr<ChangeFlag> flag_;
  std::unique_ptr<ChangeFlags> others_;
};

}  // namespace kiv
