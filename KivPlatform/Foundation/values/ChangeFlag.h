#pragma once

#include <atomic>
#include <memory>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// Set by objects when they change, and cleared by the owner of data derived from them, such as an
/// index. Thread-safe.
class ChangeFlag {
 public:
  void set() noexcept { isSet_.store(true, std::memory_order_release); }
  /// Clears the flag and returns whether it was set.
  bool clear() noexcept {
    return isSet_.load(std::memory_order_relaxed) &&
           isSet_.exchange(false, std::memory_order_acquire);
  }

 private:
  std::atomic<bool> isSet_{false};
};

/// The flags that one object sets whenever it changes. They are held by weak pointers; a flag whose
/// other owners are gone is ignored. A single flag, the usual case, needs no allocation. Not
/// thread-safe.
class KIV_EXPORT ChangeFlags {
 public:
  /// Adds a flag. No effect if it was added before.
  void add(const std::shared_ptr<ChangeFlag>& flag);
  /// Adds each flag of `others`.
  void add(const ChangeFlags& others);
  void set() const noexcept;

 private:
  std::weak_ptr<ChangeFlag> flag_;
  std::unique_ptr<ChangeFlags> others_;
};

}  // namespace kiv
