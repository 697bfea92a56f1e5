// Whole passes in which each file operation fails in turn.

#include <cerrno>

#include "Tests/KivResource/WholePassFixture.h"
#include "Tests/Support/FaultyFileManager.h"

namespace kiv::test {
namespace {

using Fault = FaultyFileManager::Fault;
using Repeat = FaultyFileManager::Repeat;

class KivResourceManagerFaultsTest : public WholePassFixture {
 protected:
  /// Repeats the pass, failing its first operation, then its second and so on, until the pass
  /// performs fewer operations than that.
  void sweep(Fault fault) {
    bool isReached = true;
    for (fault.at = 1; isReached && !HasFailure(); ++fault.at) {
      begin();
      files_.setFault(fault);
      const auto events = performThePass();
      isReached = files_.count() >= fault.at;
      SCOPED_TRACE("operation " + std::to_string(fault.at) + describe(fault.at));
      files_.setFault(std::nullopt);
      expectEveryResourceHeardOf(events);
      startProcess();
      expectNoTemporary();
      expectEveryLoadedResourceWhole();
      expectNothingLost();
      expectTheNextPassCompletes();
    }
    EXPECT_GT(fault.at, 20U) << "too few operations to be a pass";
  }

  void sweepEachError(Repeat repeat) {
    for (const int number : {ENOSPC, EIO, EACCES, EMFILE}) {
      SCOPED_TRACE(number);
      sweep({.number = number, .repeat = repeat});
    }
  }

  FaultyFileManager files_;

 private:
  /// Expects one loaded or failed event for each resource of the pass, and then one finish.
  void expectEveryResourceHeardOf(const Events& events) const {
    for (const auto& [identifier, version] : versionsOf(GetParam().after)) {
      const auto loaded = std::count(events.begin(), events.end(), "loaded " + identifier);
      const auto failed = std::count(events.begin(), events.end(), "failed " + identifier);
      EXPECT_TRUE(loaded == 1 ? failed == 0 : loaded == 0 && failed > 0) << identifier;
    }
    EXPECT_EQ(std::count(events.begin(), events.end(), "finished"), 1);
    EXPECT_TRUE(!events.empty() && events.back() == "finished");
  }

  [[nodiscard]] std::string describe(std::uint64_t number) const {
    const auto operations = files_.operations();
    if (number > operations.size()) return {};
    const auto& operation = operations[static_cast<std::size_t>(number - 1)];
    return ", " + nameOf(operation.kind) + " " + operation.path + " " + operation.newPath;
  }
};

TEST_P(KivResourceManagerFaultsTest, AnyOperationFailingOnceLosesNothing) {
  sweepEachError(Repeat::once);
}

TEST_P(KivResourceManagerFaultsTest, EveryOperationFailingFromThereOnLosesNothing) {
  sweepEachError(Repeat::fromThenOn);
}

TEST_P(KivResourceManagerFaultsTest, AShortWriteLosesNothing) {
  sweep({.number = ENOSPC, .repeat = Repeat::once, .shortWrite = true});
  sweep({.number = ENOSPC, .repeat = Repeat::fromThenOn, .shortWrite = true});
}

INSTANTIATE_TEST_SUITE_P(Passes, KivResourceManagerFaultsTest,
                         testing::ValuesIn(WholePassFixture::passes()), titleOfPass);

}  // namespace
}  // namespace kiv::test
