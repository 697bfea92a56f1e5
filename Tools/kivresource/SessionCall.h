#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "KivResource/KivResource.h"

namespace tool {

/// One line of a session's input, understood.
///
/// What a call asks of the manager is a function that makes it, and for a query answers the
/// resources; what it asks of the session itself has a type of its own.
struct SessionCall {
  /// An operation of the manager that answers nothing.
  using Order = std::function<void(KivResourceManager&)>;
  /// One that answers resources, and its name.
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
  /// A call that is not valid, and why.
  struct Invalid {
    std::string objection;
  };

  std::variant<Order, Query, WaitForFinish, Sleep, Invalid> what;
};

/// Reads one line.
SessionCall readSessionCall(std::string line);

}  // namespace tool
