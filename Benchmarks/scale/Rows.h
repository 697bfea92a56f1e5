#pragma once

#include <ctime>
#include <functional>
#include <string_view>
#include <vector>

#include "Benchmarks/scale/Workload.h"

namespace kiv::bench {

/// Measures the process's CPU time, system time included, which other programs disturb less than
/// wall-clock time.
class Stopwatch {
 public:
  template <class Work>
  auto time(const Work& work) {
    const std::clock_t start = std::clock();
    auto result = work();
    elapsed_ += std::clock() - start;
    return result;
  }
  [[nodiscard]] double seconds() const { return static_cast<double>(elapsed_) / CLOCKS_PER_SEC; }

 private:
  std::clock_t elapsed_ = 0;
};

/// One row of the table: work that is done once for each resource.
struct Row {
  std::string_view name;
  /// Prepares, does and times the work. Throws if the result is wrong.
  std::function<void(const Workload&, Stopwatch&)> run;
};

inline constexpr std::string_view restoreRow = "restore the saved list";
inline constexpr std::string_view restoreAndQueryRow = "restore, and query everything";
inline constexpr std::string_view restoreReferenceRow =
    "read, parse, ask for each file (reference)";
inline constexpr std::string_view updateCurrentRow = "update, everything current";
inline constexpr std::string_view factoryReferenceRow = "make the resources alone (reference)";

const std::vector<Row>& rows();

}  // namespace kiv::bench
