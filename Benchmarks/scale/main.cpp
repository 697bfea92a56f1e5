// Measures the cost of the framework's own work by the number of resources.
//
//   kivresource-scale --directory=DIR [--sizes=1000,10000,100000] [--rounds=7] [--bounds=on|off]
//
// Creates its caches in subdirectories of DIR, which must exist, and leaves them there. Prints the
// table and each ratio with its bound; fails if one is exceeded. Other options go to Google
// Benchmark.

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Benchmarks/scale/Report.h"
#include "Benchmarks/scale/Rows.h"
#include "Benchmarks/scale/Workload.h"
#include "KivPlatform/Foundation/system/SystemLog.h"

namespace {

using kiv::bench::Workload;

struct Options {
  std::string directory;
  std::vector<std::size_t> sizes = {1000, 10000, 100000};
  int rounds = 7;
  bool bounds = true;
  std::vector<std::string> others;
};

std::vector<std::size_t> numbers(std::string_view list) {
  std::vector<std::size_t> numbers;
  while (!list.empty()) {
    const std::size_t comma = list.find(',');
    numbers.push_back(std::strtoul(std::string(list.substr(0, comma)).c_str(), nullptr, 10));
    list.remove_prefix(comma == list.npos ? list.size() : comma + 1);
  }
  return numbers;
}

Options optionsOf(int count, char** arguments) {
  Options options;
  options.others.emplace_back(arguments[0]);
  for (int index = 1; index < count; ++index) {
    const std::string_view argument = arguments[index];
    const auto value = [&](std::string_view name) -> std::optional<std::string> {
      if (!argument.starts_with(name)) return std::nullopt;
      return std::string(argument.substr(name.size()));
    };
    if (const auto directory = value("--directory=")) {
      options.directory = *directory;
    } else if (const auto sizes = value("--sizes=")) {
      options.sizes = numbers(*sizes);
    } else if (const auto rounds = value("--rounds=")) {
      options.rounds = std::atoi(rounds->c_str());  // 0 is refused below
    } else if (const auto bounds = value("--bounds=")) {
      options.bounds = *bounds != "off";
    } else {
      options.others.emplace_back(argument);
    }
  }
  return options;
}

/// Small sizes are repeated, because of the clock's resolution.
void registerRow(const kiv::bench::Row& row, const Workload& workload, int rounds) {
  const auto iterations = std::clamp<std::size_t>(40000 / workload.size(), 1, 40);
  const auto work = [&row, &workload](benchmark::State& state) {
    for (auto iteration : state) {
      static_cast<void>(iteration);
      kiv::bench::Stopwatch stopwatch;
      try {
        row.run(workload, stopwatch);
      } catch (const std::exception& exception) {
        state.SkipWithError(exception.what());
        break;
      }
      state.SetIterationTime(stopwatch.seconds());
    }
  };
  const std::string name = kiv::bench::benchmarkName(row.name, workload.size());
  benchmark::RegisterBenchmark(name.c_str(), work)
      ->UseManualTime()
      ->Iterations(static_cast<benchmark::IterationCount>(iterations))
      ->Repetitions(rounds);
}

/// Google Benchmark interleaves the rounds of all rows at random, so that a slow minute of the
/// machine does not affect one row alone.
bool run(Options& options, kiv::bench::Report& report) {
  options.others.emplace_back("--benchmark_enable_random_interleaving=true");
  std::vector<char*> arguments;
  for (auto& argument : options.others)
    arguments.push_back(argument.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return false;

  std::vector<std::unique_ptr<Workload>> workloads;
  for (const std::size_t size : options.sizes) {
    workloads.push_back(std::make_unique<Workload>(options.directory, size));
    for (const auto& row : kiv::bench::rows())
      registerRow(row, *workloads.back(), options.rounds);
  }
  benchmark::RunSpecifiedBenchmarks(&report);
  for (const auto& workload : workloads)
    workload->putWholeList();
  return !report.failed();
}

}  // namespace

int main(int count, char** arguments) {
  Options options = optionsOf(count, arguments);
  if (options.directory.empty() || options.sizes.empty() || options.rounds <= 0) {
    std::fprintf(stderr, "usage: kivresource-scale --directory=DIR [--sizes=N,...] [--rounds=N]\n");
    return 2;
  }
  kiv::SystemLog::setHandler([](std::string_view) {});
  kiv::bench::Report report(options.sizes);
  try {
    if (!run(options, report)) return 1;
    report.printTable();
    return !options.bounds || report.printBounds() ? 0 : 1;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "kivresource-scale: %s\n", exception.what());
    return 1;
  }
}
