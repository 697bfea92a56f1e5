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

/// Sends the callbacks of one protocol to its observers, each on that observer's queue.
///
/// Keeps pairs of an observer, held weakly, and a queue. A callback is delivered asynchronously to
/// each pair that was registered when it was sent, or when recipients() was called, in the order of
/// registration. An observer receives callbacks in the order in which they were sent. An observer
/// that has been destroyed or removed meanwhile receives nothing more. Observers may add and remove
/// observers, including themselves, during a callback. All operations may be called from any
/// thread.
///
/// `Protocol` is a class whose virtual callbacks have empty bodies, so that an observer implements
/// only those that it wants.
template <class Protocol>
class GCDMulticastDelegate {
 public:
  /// Registers the observer with the queue. Does nothing if one of them is null, or the pair is
  /// already registered. An observer that is registered with two queues receives each callback on
  /// both.
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

  /// Removes the observer with all of its queues. Pending callbacks are not delivered any more; one
  /// that is running on another thread is not waited for.
  void removeDelegate(const std::shared_ptr<Protocol>& delegate) {
    Nodes former;
    const kiv::MutexLock lock(mutex_);
    former = keep([&](const Node& node) { return node.identity != delegate.get(); });
    for (const auto& node : *former) {
      if (node->identity == delegate.get()) node->removed = true;
    }
  }

  class Recipients;

  /// The observers registered now, to send them a callback about this moment later.
  [[nodiscard]] Recipients recipients() { return Recipients(registeredNodes()); }

  /// Sends a callback: `call` is called with each observer, on that observer's queue.
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
  /// Immutable: a change replaces it, so that a sender can iterate without the lock.
  using Nodes = std::shared_ptr<const std::vector<std::shared_ptr<Node>>>;

  template <class Call>
  static void deliver(Call call, const std::shared_ptr<Node>& node) {
    node->queue->async([node, call = std::move(call)] {
      const auto delegate = node->delegate.lock();
      if (delegate && !node->removed) call(*delegate);
    });
  }

  // The host's code never runs under the lock: neither a queue's wake-up handler, which async() may
  // call, nor the last jobs of a queue, which run when its last reference is released. That
  // reference may be a node's, so the former list keeps removed nodes until after the unlock.

  Nodes registeredNodes() {
    Nodes former;
    const kiv::MutexLock lock(mutex_);
    former = keep([](const Node& node) { return !node.delegate.expired(); });
    return nodes_;
  }

  /// Removes the nodes that are not kept. Returns the former list.
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

/// The observers that were registered at one moment, except those removed since.
template <class Protocol>
class GCDMulticastDelegate<Protocol>::Recipients {
 public:
  Recipients() = default;

  /// As GCDMulticastDelegate::send().
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
