#include "KivPlatform/Foundation/queues/QueueAssertion.h"

#include <cstdio>
#include <cstdlib>

namespace kiv {

QueueAssertion::QueueAssertion(const char* object)
    : object_(object), thread_(std::this_thread::get_id()) {
  const auto current = DispatchQueue::current();
  queue_ = current ? current : DispatchQueue::main();
}

bool QueueAssertion::isHere() const {
  const auto current = DispatchQueue::current();
  if (!current && std::this_thread::get_id() == thread_) return true;
  const auto queue = queue_.lock();
  return !queue || current == queue;
}

void QueueAssertion::check([[maybe_unused]] const char* className,
                           [[maybe_unused]] const char* call) const {
#ifndef NDEBUG
  if (isHere()) return;
  std::fprintf(stderr,
               "%s::%s was called off the queue on which %s was made; post it there with "
               "kiv::DispatchQueue::async.\n",
               className, call, object_);
  std::abort();
#endif
}

}  // namespace kiv
