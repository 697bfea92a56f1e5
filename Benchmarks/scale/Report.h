#pragma once

#include <benchmark/benchmark.h>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace kiv::bench {

/// Gathers the rounds of every row at every size, and prints what they came to.
class Report : public benchmark::BenchmarkReporter {
 public:
  explicit Report(std::vector<std::size_t> sizes) : sizes_(std::move(sizes)) {}

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;

  /// The table of medians: nanoseconds for each resource, and their growth between sizes.
  void printTable() const;
  /// Each ratio beside its bound; false if one is broken.
  [[nodiscard]] bool printBounds() const;
  /// True if some row could not do its work, which has been said.
  [[nodiscard]] bool failed() const noexcept { return failed_; }

 private:
  [[nodiscard]] double median(std::string_view row, std::size_t size) const;

  std::vector<std::size_t> sizes_;
  std::map<std::string, std::vector<double>> nanosecondsByName_;
  bool failed_ = false;
};

/// What Google Benchmark knows a row at a size by.
std::string benchmarkName(std::string_view row, std::size_t size);

}  // namespace kiv::bench
