#pragma once

#include <cstddef>
#include <functional>
#include <pthread.h>

#include <gtest/gtest.h>

namespace kiv::test {

/// Runs the job on a new thread with a stack of that many bytes and joins it.
inline void runWithStack(std::size_t size, const std::function<void()>& job) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
  pthread_t thread{};
  const auto run = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&job)), 0);
  pthread_attr_destroy(&attributes);
  pthread_join(thread, nullptr);
}

}  // namespace kiv::test
