#pragma once

#include <algorithm>
#include <atomic>
#include <concepts>
#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/DispatchQueue.h"

/// Fans the callbacks of one protocol out to its observers, each on its own queue.
///
/// Keeps pairs of an observer, held weakly, and a queue. A callback is delivered asynchronously to
/// each pair that was registered when it was sent, or when its recipients were taken, in the order
/// of registration; callbacks to one observer keep the order in which they were sent. An observer
/// that has gone, or was removed meanwhile, hears nothing any more. Observers may add and remove
/// observers, themselves too, during a callback. All operations may be called from any thread.
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
    Nodes former;
    const kiv::MutexLock lock(mutex_);
    former = keep([](const Node& node) { return !node.delegate.expired(); });
    const bool known = std::any_of(nodes_->begin(), nodes_->end(), [&](const auto& node) {
      return node->identity == delegate.get() && node->queue == queue;
    });
    if (known) return;
    auto nodes = std::make_shared<std::vector<std::shared_ptr<Node>>>(*nodes_);
    nodes->push_back(std::make_shared<Node>(delegate, queue));
    nodes_ = std::move(nodes);
  }

  /// Drops the observer's registrations, whatever their queues. Callbacks that are on their way are
  /// not delivered any more; one that runs now on another thread is not waited for.
  void removeDelegate(const std::shared_ptr<Protocol>& delegate) {
    Nodes former;
    const kiv::MutexLock lock(mutex_);
    former = keep([&](const Node& node) { return node.identity != delegate.get(); });
    for (const auto& node : *former) {
      if (node->identity == delegate.get()) node->removed = true;
    }
  }

  class Recipients;

  /// The observers that are registered now: a callback that is sent to them later tells of what has
  /// happened now.
  [[nodiscard]] Recipients recipients() { return Recipients(registeredNodes()); }

  /// Sends a callback: `call` is run with each observer, on that observer's queue. Of callbacks
  /// that several threads send at once, either may come first.
  template <std::invocable<Protocol&> Call>
  void send(Call call) {
    recipients().send(std::move(call));
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
  /// Never changed but replaced, so that a sender can go through it without the lock.
  using Nodes = std::shared_ptr<const std::vector<std::shared_ptr<Node>>>;

  template <class Call>
  static void deliver(Call call, const std::shared_ptr<Node>& node) {
    node->queue->async([node, call = std::move(call)] {
      const auto delegate = node->delegate.lock();
      if (delegate && !node->removed) call(*delegate);
    });
  }

  // No foreign code runs under the lock. A queue's wake-up handler does not, so jobs are added
  // without it; nor do a queue's last jobs, which run when its last holder lets go, and that may be
  // a node: so nodes that leave the list outlive the lock, in the former list.

  Nodes registeredNodes() {
    Nodes former;
    const kiv::MutexLock lock(mutex_);
    former = keep([](const Node& node) { return !node.delegate.expired(); });
    return nodes_;
  }

  /// Keeps those nodes alone, and answers the former list.
  template <class Predicate>
  Nodes keep(Predicate isKept) KIV_REQUIRES(mutex_) {
    const auto isKeptNode = [&](const auto& node) { return isKept(*node); };
    Nodes former = nodes_;
    if (std::all_of(former->begin(), former->end(), isKeptNode)) return former;
    auto kept = std::make_shared<std::vector<std::shared_ptr<Node>>>();
    std::copy_if(former->begin(), former->end(), std::back_inserter(*kept), isKeptNode);
    nodes_ = std::move(kept);
    return former;
  }

  kiv::Mutex mutex_;
  Nodes nodes_ KIV_GUARDED_BY(mutex_) =
      std::make_shared<const std::vector<std::shared_ptr<Node>>>();
};

/// Observers of one moment. One that is removed later hears nothing all the same.
template <class Protocol>
class GCDMulticastDelegate<Protocol>::Recipients {
 public:
  Recipients() = default;

  /// Sends them a callback, as GCDMulticastDelegate::send() does.
  template <std::invocable<Protocol&> Call>
  void send(Call call) const {
    if (!nodes_ || nodes_->empty()) return;
    for (std::size_t index = 0; index + 1 < nodes_->size(); ++index)
      deliver(call, (*nodes_)[index]);
    deliver(std::move(call), nodes_->back());
  }

 private:
  friend class GCDMulticastDelegate;
  explicit Recipients(Nodes nodes) : nodes_(std::move(nodes)) {}

  Nodes nodes_;
};
