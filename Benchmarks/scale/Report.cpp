#include "Benchmarks/scale/Report.h"

#include <algorithm>
#include <cstdio>

#include "Benchmarks/scale/Rows.h"

namespace kiv::bench {

namespace {

bool printBound(std::string_view what, double ratio, double bound) {
  const bool holds = ratio <= bound;
  std::printf("%-72.*s %5.2f, at most %4.2f: %s\n", static_cast<int>(what.size()), what.data(),
              ratio, bound, holds ? "holds" : "BROKEN");
  return holds;
}

}  // namespace

std::string benchmarkName(std::string_view row, std::size_t size) {
  return std::string(row) + "/" + std::to_string(size);
}

bool Report::ReportContext(const Context&) {
  return true;
}

void Report::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.error_occurred) {
      std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
      failed_ = true;
    } else if (run.run_type == Run::RT_Iteration) {
      const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
      nanosecondsByName_[run.run_name.function_name].push_back(seconds * 1e9);
    }
  }
}

double Report::median(std::string_view row, std::size_t size) const {
  auto rounds = nanosecondsByName_.at(benchmarkName(row, size));
  std::sort(rounds.begin(), rounds.end());
  const std::size_t middle = rounds.size() / 2;
  const double total =
      rounds.size() % 2 == 1 ? rounds[middle] : (rounds[middle - 1] + rounds[middle]) / 2;
  return total / static_cast<double>(size);
}

void Report::printTable() const {
  std::printf("| nanoseconds for each resource |");
  for (const std::size_t size : sizes_)
    std::printf(" %zu |", size);
  std::printf(" growth |\n|---|");
  for (std::size_t column = 0; column <= sizes_.size(); ++column)
    std::printf("---:|");
  std::printf("\n");
  for (const Row& row : rows()) {
    std::printf("| %.*s |", static_cast<int>(row.name.size()), row.name.data());
    for (const std::size_t size : sizes_)
      std::printf(" %.0f |", median(row.name, size));
    std::printf(" %.2f |\n", median(row.name, sizes_.back()) / median(row.name, sizes_.front()));
  }
}

bool Report::printBounds() const {
  const std::size_t largest = sizes_.back();
  const auto ratio = [&](std::string_view row, std::string_view reference) {
    return median(row, largest) / median(reference, largest);
  };
  bool hold =
      printBound("restore against read, parse, ask", ratio(restoreRow, restoreReferenceRow), 2);
  hold = printBound("restore, and query everything, against the same",
                    ratio(restoreAndQueryRow, restoreReferenceRow), 2.5) &&
         hold;
  hold = printBound("update, everything current, against making the resources",
                    ratio(updateCurrentRow, factoryReferenceRow), 3) &&
         hold;
  for (const Row& row : rows()) {
    const double growth = median(row.name, largest) / median(row.name, sizes_.front());
    hold = printBound("growth: " + std::string(row.name), growth, 2) && hold;
  }
  return hold;
}

}  // namespace kiv::bench
