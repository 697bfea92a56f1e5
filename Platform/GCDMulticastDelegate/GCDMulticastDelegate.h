#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <iterator>
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
    Nodes gone;
    const std::lock_guard lock(mutex_);
    gone = takeOut([](const Node& node) { return node.delegate.expired(); });
    const bool known = std::any_of(nodes_.begin(), nodes_.end(), [&](const auto& node) {
      return node->identity == delegate.get() && node->queue == queue;
    });
    if (!known) nodes_.push_back(std::make_shared<Node>(delegate, queue));
  }

  /// Drops the observer's registrations, whatever their queues. Callbacks that are on their way are
  /// not delivered any more; one that runs now on another thread is not waited for.
  void removeDelegate(const std::shared_ptr<Protocol>& delegate) {
    Nodes gone;
    const std::lock_guard lock(mutex_);
    gone = takeOut([&](const Node& node) { return node.identity == delegate.get(); });
    for (const auto& node : gone)
      node->removed = true;
  }

  /// Sends a callback: `call` is run with each observer, on that observer's queue. Of callbacks
  /// that several threads send at once, either may come first.
  void send(std::function<void(Protocol&)> call) {
    const auto shared = std::make_shared<const std::function<void(Protocol&)>>(std::move(call));
    for (const auto& node : registeredNodes()) {
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
  using Nodes = std::vector<std::shared_ptr<Node>>;

  // No foreign code runs under the lock. A queue's wake-up handler does not, so jobs are added
  // without it; nor do a queue's last jobs, which run when its last holder lets go, and that may be
  // a node: so nodes that leave the list outlive the lock.

  Nodes registeredNodes() {
    Nodes gone;
    const std::lock_guard lock(mutex_);
    gone = takeOut([](const Node& node) { return node.delegate.expired(); });
    return nodes_;
  }

  template <class Predicate>
  Nodes takeOut(Predicate isToGo) {
    const auto first = std::stable_partition(nodes_.begin(), nodes_.end(),
                                             [&](const auto& node) { return !isToGo(*node); });
    Nodes gone(std::make_move_iterator(first), std::make_move_iterator(nodes_.end()));
    nodes_.erase(first, nodes_.end());
    return gone;
  }

  std::mutex mutex_;
  Nodes nodes_;
};
