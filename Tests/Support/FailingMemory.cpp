#include "Tests/Support/FailingMemory.h"

#include <cstdlib>
#include <new>
#include <thread>

namespace {

const std::thread::id mainThread = std::this_thread::get_id();

bool fails() {
  if (kiv::test::allocationsLeft < 0 || std::this_thread::get_id() == mainThread) return false;
  return kiv::test::allocationsLeft-- == 0;
}

}  // namespace

std::atomic<long> kiv::test::allocationsLeft = -1;

// These are in a separate file: a compiler that sees only one of the pair next to its use assumes
// that the other is the library's.

void* operator new(std::size_t size) {
  if (fails()) throw std::bad_alloc();
  if (void* const place = std::malloc(size == 0 ? 1 : size)) return place;
  throw std::bad_alloc();
}

void operator delete(void* place) noexcept {
  std::free(place);
}
void operator delete(void* place, std::size_t) noexcept {
  std::free(place);
}
