#include "KivPlatform/Foundation/queues/QueueAssertion.h"

#include <cstdio>
#include <cstdlib>

namespace kiv {

namespace {

#ifdef NDEBUG
constexpr bool isChecked = false;
#else
constexpr bool isChecked = true;
#endif

}  // namespace

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

void QueueAssertion::check(const char* className, const char* call) const {
  if (!isChecked || isHere()) return;
  std::fprintf(stderr,
               "%s::%s was called off the queue on which %s was made; post it there with "
               "kiv::DispatchQueue::async.\n",
               className, call, object_);
  std::abort();
}

}  // namespace kiv
