// Whole passes in which the power is cut after the first file operation, the second one and so on.

#include "Tests/KivResource/WholePassFixture.h"
#include "Tests/Support/PowerCutFileManager.h"

namespace kiv::test {
namespace {

using Loss = PowerCutFileManager::Loss;

class KivResourceManagerPowerCutFaultsTest : public WholePassFixture {
 protected:
  void cutEverywhere(Loss loss, std::uint32_t seed) {
    std::filesystem::create_directories(root());
    PowerCutFileManager files(root());
    files.allowsBatchSyncs = GetParam().isGrouped;
    bool wasCut = true;
    std::uint64_t at = 0;
    for (; wasCut && !HasFailure(); ++at) {
      SCOPED_TRACE("cut after " + std::to_string(at) + ", seed " + std::to_string(seed));
      leaveRoot();
      files.format();
      startProcess();
      perform(GetParam().before, false);
      startProcess();
      files.cutAfter(at);
      performThePass();
      wasCut = files.wasCut();
      files.cutAfter(0);  // destructors must not clean up after the power cut
      leaveRoot();
      files.restart(loss, seed);
      startProcess();
      expectNoTemporary();
      expectEveryLoadedResourceWhole();
      expectNothingLost();
      expectTheNextPassCompletes();
    }
    EXPECT_GT(at, 20U) << "too few operations to be a pass";
  }
};

TEST_P(KivResourceManagerPowerCutFaultsTest, EveryListedResourceIsWholeWithoutWhatWasNotSynced) {
  cutEverywhere(Loss::everythingUnsynced, 0);
}

TEST_P(KivResourceManagerPowerCutFaultsTest, EveryListedResourceIsWholeWhateverElseSurvives) {
  for (std::uint32_t seed = 0; seed < 2; ++seed)
    cutEverywhere(Loss::anyPart, seed);
}

INSTANTIATE_TEST_SUITE_P(Passes, KivResourceManagerPowerCutFaultsTest,
                         testing::ValuesIn(WholePassFixture::passes()), titleOfPass);

}  // namespace
}  // namespace kiv::test
