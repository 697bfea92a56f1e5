#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivResource/KivResourceRESTModule.h"
#include "KivResource/passes/KivResourcePassReport.h"
#include "Tests/Support/ManagerFixture.h"

namespace kiv::test {

using Reports = std::vector<KivResourcePassReport>;

/// Has no memory for a download.
struct ThrowingLoader : KivResourceRESTModule {
  void loadDataForResource_usingFileLink_completionHandler(const std::shared_ptr<KivResource>&,
                                                           const std::string&,
                                                           CompletionHandler) override {
    throw std::bad_alloc();
  }
};

/// A manager fixture that collects the reports of passes.
template <class Fixture>
class WithReports : public Fixture {
 protected:
  /// Starts a pass. Its report is one of reports() when the main queue has been drained.
  std::uint64_t follow(const KivResourcePass& pass) {
    // Owned by the handler too: the report of a pass that a test leaves behind comes after it.
    return this->manager->startPass(
        pass, [all = reports_](const KivResourcePassReport& report) { all->push_back(report); });
  }

  /// The reports that have come, after draining the main queue. Events stay recorded.
  const Reports& reports() {
    while (DispatchQueue::main()->drain() > 0) {
    }
    return *reports_;
  }

  /// Returns and clears them.
  Reports takeReports() {
    reports();
    return std::exchange(*reports_, {});
  }

  /// Expects that exactly one has come, and takes it.
  KivResourcePassReport takeReport() {
    auto taken = takeReports();
    EXPECT_EQ(taken.size(), 1U);
    return taken.empty() ? KivResourcePassReport() : std::move(taken.front());
  }

  void expectNoReport() { EXPECT_TRUE(reports().empty()); }

  /// Identifier and outcome of each entry.
  static Names entriesOf(const KivResourcePassReport& report) {
    Names entries;
    for (const auto& entry : report.entries)
      entries.push_back(entry.resourceID + " " + std::string(kiv::nameOf(entry.outcome)));
    return entries;
  }

  /// Link and outcome of each file of all entries.
  static Names filesOf(const KivResourcePassReport& report) {
    Names files;
    for (const auto& entry : report.entries) {
      for (const auto& file : entry.files)
        files.push_back(file.link + " " + std::string(kiv::nameOf(file.outcome)));
    }
    return files;
  }

 private:
  std::shared_ptr<Reports> reports_ = std::make_shared<Reports>();
};

}  // namespace kiv::test
