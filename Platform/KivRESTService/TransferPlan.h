#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "Platform/Foundation/Export.h"
#include "Platform/KivRESTService/TransferJob.h"

namespace kiv {

/// Decides which of a task's servers is tried next, and which of their outcomes the task ends with.
///
/// What a task ends with depends on the order of the servers in its list alone, not on the order in
/// which they were tried.
class KIV_EXPORT TransferPlan {
 public:
  /// `servers` is the number of servers in the list, the request's own first; at least one.
  explicit TransferPlan(std::size_t servers);

  /// The place in the list of the server to try next; nothing where the task has ended.
  [[nodiscard]] std::optional<std::size_t> nextServer() const noexcept;
  /// Notes how the try of that server ended.
  void record(std::size_t server, TransferOutcome outcome);

  /// What the task ends with: the first 200; else the response that the earliest server gave; else
  /// the error of the request's own server. To be asked once, when no server is left to try.
  [[nodiscard]] TransferOutcome takeOutcome();

 private:
  std::vector<std::optional<TransferOutcome>> outcomes_;
  std::optional<std::size_t> success_;
};

}  // namespace kiv
