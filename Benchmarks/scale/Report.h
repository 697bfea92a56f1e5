#pragma once

#include <benchmark/benchmark.h>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace kiv::bench {

/// Collects the results of all rows and sizes, and prints them.
class Report : public benchmark::BenchmarkReporter {
 public:
  explicit Report(std::vector<std::size_t> sizes) : sizes_(std::move(sizes)) {}

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;

  /// The table of medians: nanoseconds per resource, and their growth between sizes.
  void printTable() const;
  /// Each ratio with its bound; false if one is exceeded.
  [[nodiscard]] bool printBounds() const;
  /// True if a row failed, which was reported.
  [[nodiscard]] bool failed() const noexcept { return failed_; }

 private:
  [[nodiscard]] double median(std::string_view row, std::size_t size) const;

  std::vector<std::size_t> sizes_;
  std::map<std::string, std::vector<double>> nanosecondsByName_;
  bool failed_ = false;
};

/// The name of a row at a size in Google Benchmark.
std::string benchmarkName(std::string_view row, std::size_t size);

}  // namespace kiv::bench
