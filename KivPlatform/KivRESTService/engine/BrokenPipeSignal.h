#pragma once

namespace kiv {

/// Keeps a write to a connection that the other side has closed from ending the process: on this
/// thread, and on those that it starts, such a write is only an error. The TLS library writes
/// without asking for that itself.
void ignoreBrokenPipesOnThisThread() noexcept;

}  // namespace kiv
