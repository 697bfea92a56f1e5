#pragma once

namespace kiv {

/// True on the thread that runs the program's main function.
bool isMainThread() noexcept;

}  // namespace kiv
