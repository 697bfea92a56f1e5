#pragma once

#include <ctime>
#include <functional>
#include <string_view>
#include <vector>

#include "Benchmarks/scale/Workload.h"

namespace kiv::bench {

/// Counts the processor time of this process, the system's share included, which other programs on
/// the machine disturb less than they do the time on the wall.
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

/// One line of the table: a piece of work that is done once for each resource.
struct Row {
  std::string_view name;
  /// Prepares the work, does and times it, and throws where it did not come to what it should.
  std::function<void(const Workload&, Stopwatch&)> run;
};

inline constexpr std::string_view restoreRow = "restore the saved list";
inline constexpr std::string_view restoreReferenceRow =
    "read, parse, ask for each file (reference)";
inline constexpr std::string_view updateCurrentRow = "update, everything current";
inline constexpr std::string_view factoryReferenceRow = "make the resources alone (reference)";

const std::vector<Row>& rows();

}  // namespace kiv::bench
