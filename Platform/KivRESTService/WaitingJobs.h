#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "Platform/Foundation/Export.h"
#include "Platform/KivRESTService/TransferJob.h"

namespace kiv {

/// The jobs that wait for a free place: the largest priority comes first, and among equals the one
/// that was queued first.
class KIV_EXPORT WaitingJobs {
 public:
  void add(TransferJob job);
  /// Takes out the job that comes next. There must be one.
  TransferJob takeNext();
  void clear() noexcept { jobs_.clear(); }
  [[nodiscard]] bool empty() const noexcept { return jobs_.empty(); }
  [[nodiscard]] std::size_t size() const noexcept { return jobs_.size(); }

 private:
  struct Place {
    std::uint64_t priority;
    std::uint64_t id;
    bool operator<(const Place& other) const noexcept;
  };

  std::map<Place, TransferJob> jobs_;
};

}  // namespace kiv
