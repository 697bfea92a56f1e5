#pragma once

#include <functional>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// The system log: single lines without levels, written to the platform's log and to standard
/// error. May be used from any thread.
class KIV_EXPORT SystemLog {
 public:
  using Handler = std::function<void(std::string_view line)>;

  /// Writes one line. Control characters in it, which text from a server may hold, are written as
  /// escapes, so that one call is always one line and reads as it is written; see
  /// escapingControlCharacters().
  static void write(std::string_view line);

  /// Sends every further line to `handler` instead; an empty handler brings the system log back.
  /// The handler is called on whatever thread writes, also on several at one time, and no lock is
  /// held meanwhile. What it throws is lost. A call of the former handler that has begun on another
  /// thread may end after this has returned.
  static void setHandler(Handler handler);
};

}  // namespace kiv
