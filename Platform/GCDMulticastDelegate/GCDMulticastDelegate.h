#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "Platform/Foundation/DispatchQueue.h"

/// Fans the callbacks of one protocol out to its observers, each on its own queue.
///
/// Keeps pairs of an observer, held weakly, and a queue. A callback is delivered asynchronously to
/// each pair that was registered when it was sent, in the order of registration; callbacks to one
/// observer keep the order in which they were sent. An observer that has gone, or was removed
/// meanwhile, hears nothing any more. Observers may add and remove observers, themselves too,
/// during a callback. All operations may be called from any thread.
///
/// `Protocol` is an abstract class whose callbacks have empty default bodies, so that an observer
/// implements those that it wants.
template <class Protocol>
class GCDMulticastDelegate {
 public:
  /// Registers the observer with the queue. Without an observer or a queue nothing happens, nor
  /// where this pair is registered already. With another queue, the observer hears every callback
  /// on both.
  void addDelegate_delegateQueue(const std::shared_ptr<Protocol>& delegate,
                                 const std::shared_ptr<kiv::DispatchQueue>& queue) {
    if (!delegate || !queue) return;
    const std::lock_guard lock(mutex_);
    forgetGoneDelegates();
    const bool known = std::any_of(nodes_.begin(), nodes_.end(), [&](const auto& node) {
      return node->identity == delegate.get() && node->queue == queue;
    });
    if (!known) nodes_.push_back(std::make_shared<Node>(delegate, queue));
  }

  /// Drops the observer's registrations, whatever their queues. Callbacks that are on their way are
  /// not delivered any more; one that runs now on another thread is not waited for.
  void removeDelegate(const std::shared_ptr<Protocol>& delegate) {
    const std::lock_guard lock(mutex_);
    std::erase_if(nodes_, [&](const auto& node) {
      if (node->identity != delegate.get()) return false;
      node->removed = true;
      return true;
    });
  }

  /// Sends a callback: `call` is run with each observer, on that observer's queue.
  void send(std::function<void(Protocol&)> call) {
    const std::lock_guard lock(mutex_);
    forgetGoneDelegates();
    const auto shared = std::make_shared<const std::function<void(Protocol&)>>(std::move(call));
    for (const auto& node : nodes_) {
      node->queue->async([node, shared] {
        const auto delegate = node->delegate.lock();
        if (delegate && !node->removed) (*shared)(*delegate);
      });
    }
  }

 private:
  struct Node {
    Node(const std::shared_ptr<Protocol>& observer, std::shared_ptr<kiv::DispatchQueue> target)
        : delegate(observer), identity(observer.get()), queue(std::move(target)) {}

    const std::weak_ptr<Protocol> delegate;
    const Protocol* const identity;  // compared only, never followed
    const std::shared_ptr<kiv::DispatchQueue> queue;
    std::atomic<bool> removed = false;
  };

  void forgetGoneDelegates() {
    std::erase_if(nodes_, [](const auto& node) { return node->delegate.expired(); });
  }

  std::mutex mutex_;
  std::vector<std::shared_ptr<Node>> nodes_;
};
