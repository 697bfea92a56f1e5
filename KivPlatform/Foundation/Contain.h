#pragma once

#include <exception>

namespace kiv {

/// Calls the function; false if it threw, which happens if memory runs out. For work whose
/// exception must not escape: from a destructor, or from a step that would then never end.
template <class Function>
bool contain(const Function& function) noexcept {
  try {
    function();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

/// The same for a function that is required and may be called twice: if it throws, it is called
/// once more, since its memory is free again.
template <class Function>
void insist(const Function& function) noexcept {
  if (!contain(function)) contain(function);
}

}  // namespace kiv
