#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "KivResource/KivResource.h"

namespace tool {

/// A parsed line of a session's input.
///
/// A call to the manager is a function; for a query, it returns the resources. Calls to the session
/// itself have separate types.
struct SessionCall {
  /// An operation of the manager without a result.
  using Order = std::function<void(KivResourceManager&)>;
  /// An operation that returns resources, and its name.
  struct Query {
    std::string_view name;
    std::function<kiv::ResourceArray(const KivResourceManager&)> ask;
  };
  struct WaitForFinish {
    std::chrono::milliseconds timeout;
  };
  struct Sleep {
    std::chrono::milliseconds time;
  };
  /// An invalid call and the reason.
  struct Invalid {
    std::string objection;
  };

  std::variant<Order, Query, WaitForFinish, Sleep, Invalid> what;
};

/// Parses one line.
SessionCall readSessionCall(std::string line);

}  // namespace tool
