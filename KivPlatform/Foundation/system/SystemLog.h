#pragma once

#include <functional>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// The system log: single lines without levels, written to the platform's log and to standard
/// error. Thread-safe.
class KIV_EXPORT SystemLog {
 public:
  using Handler = std::function<void(std::string_view line)>;

  /// Writes one line. Control characters, which text from a server may contain, are escaped (see
  /// escapingControlCharacters), so that one call is always one line.
  static void write(std::string_view line);

  /// Sends all further lines to `handler` instead; an empty handler restores the system log. The
  /// handler is called on the thread that writes, without a lock, and perhaps by several threads at
  /// the same time. Its exceptions are ignored. When this returns, the former handler may still be
  /// running on another thread.
  static void setHandler(Handler handler);
};

}  // namespace kiv
