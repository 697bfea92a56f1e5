#pragma once

namespace kiv {

/// Gives this thread a name that debuggers and system monitors show. The system keeps no more than
/// 15 characters.
void nameThisThread(const char* name) noexcept;

}  // namespace kiv
