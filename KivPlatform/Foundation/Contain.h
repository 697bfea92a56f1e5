#pragma once

#include <exception>

namespace kiv {

/// Calls the function; false if it threw, which happens when memory runs out. For work whose
/// exception must not escape, for example from a destructor.
template <class Function>
bool contain(const Function& function) noexcept {
  try {
    function();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

/// The same for a function that must run and may be called twice: if it throws, it is called once
/// more, since the failed call has released its memory.
template <class Function>
void insist(const Function& function) noexcept {
  if (!contain(function)) contain(function);
}

}  // namespace kiv
