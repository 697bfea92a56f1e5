#pragma once

#include <atomic>

namespace kiv::test {

/// In a program that has FailingMemory.cpp inside: the allocations by operator new, on any thread
/// but the main one, that succeed before one of them fails; negative for none that fails.
extern std::atomic<long> allocationsLeft;

}  // namespace kiv::test
