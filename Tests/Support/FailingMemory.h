#pragma once

#include <atomic>

namespace kiv::test {

/// The number of allocations by operator new, on threads other than the main one, that succeed
/// before one fails; negative if none fails. Only in programs that compile FailingMemory.cpp.
extern std::atomic<long> allocationsLeft;

}  // namespace kiv::test
