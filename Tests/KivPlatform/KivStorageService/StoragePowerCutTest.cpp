#include <algorithm>
#include <functional>

#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/PowerCutFileManager.h"

namespace kiv::test {
namespace {

using Loss = PowerCutFileManager::Loss;

/// The features of the file system.
struct Ways {
  bool refusesExchanges = false;
  bool syncsInBatches = false;
};

class StoragePowerCutTest : public StorageServiceFixture {
 protected:
  /// Cuts the power after each operation of `save` in turn, and checks the stored files after a
  /// restart.
  void cutEverywhere(const std::function<bool()>& prepare, const std::function<bool()>& save,
                     const std::function<bool(const Tree&)>& isWhole,
                     const std::function<bool(const Tree&)>& isNew, Ways ways = {}) {
    PowerCutFileManager files(root());
    files.refusesExchanges = ways.refusesExchanges;
    files.allowsBatchSyncs = ways.syncsInBatches;
    for (const auto& [loss, seeds] :
         {std::pair{Loss::everythingUnsynced, 1U}, std::pair{Loss::anyPart, 6U}}) {
      for (std::uint32_t seed = 0; seed < seeds; ++seed) {
        bool wasCut = true;
        for (std::uint64_t at = 0; wasCut; ++at) {
          SCOPED_TRACE("cut after " + std::to_string(at) + ", seed " + std::to_string(seed));
          KivStorageService::setRootPath("");
          files.format();
          KivStorageService::setRootPath(root());
          ASSERT_TRUE(prepare());
          files.cutAfter(at);
          const bool isSaved = save();
          wasCut = files.wasCut();
          start(files, loss, seed);
          const Tree found = treeOf(stored(""));
          ASSERT_TRUE(isWhole(found)) << describe(found);
          if (isSaved) {
            ASSERT_TRUE(isNew(found)) << describe(found);
          }
          ASSERT_EQ(temporaries(), Tree{});
          ASSERT_TRUE(save());
          ASSERT_TRUE(isNew(treeOf(stored(""))));
        }
      }
    }
  }

 private:
  /// Restarts the machine and the service.
  void start(PowerCutFileManager& files, Loss loss, std::uint32_t seed) {
    files.cutAfter(0);  // destructors must not clean up after the power cut
    KivStorageService::setRootPath("");
    files.restart(loss, seed);
    KivStorageService::setRootPath(root());
  }

  static std::string describe(const Tree& tree) {
    std::string text;
    for (const auto& [path, bytes] : tree)
      text += path + "=" + bytes + "\n";
    return text;
  }
};

TEST_F(StoragePowerCutTest, AFileIsOldNewOrAbsentNeverHalf) {
  const auto saves = [](const char* bytes) { return [=] { return !save("a.png", bytes); }; };
  const Tree old{{"a.png", "old bytes"}};
  const Tree fresh{{"a.png", "new bytes"}};
  const auto isNew = [&](const Tree& tree) { return tree == fresh; };
  cutEverywhere([] { return true; }, saves("new bytes"),
                [&](const Tree& tree) { return tree.empty() || tree == fresh; }, isNew);
  cutEverywhere(
      saves("old bytes"), saves("new bytes"),
      [&](const Tree& tree) { return tree == old || tree == fresh; }, isNew);
}

TEST_F(StoragePowerCutTest, EachFileOfAGroupIsOldOrNewNeverHalf) {
  constexpr int count = 3;
  const auto name = [](int index) { return std::to_string(index) + ".png"; };
  const auto saves = [&](const std::string& bytes) {
    return [=] {
      KivStorageService::Batch batch;
      std::vector<std::optional<KivStorageService::StagedFile>> staged;
      for (int index = 0; index < count; ++index)
        staged.push_back(batch.stage(Data(bytes), name(index), resources));
      const bool areSaved = std::all_of(staged.begin(), staged.end(),
                                        [](auto& file) { return file && file->commit(); });
      return areSaved && batch.end();
    };
  };
  const auto allAre = [&](const Tree& tree, const std::string& bytes) {
    return tree.size() == count && std::all_of(tree.begin(), tree.end(), [&](const auto& item) {
             return item.second == bytes;
           });
  };
  const auto isOldOrNew = [](const Tree& tree) {
    return tree.size() == count && std::all_of(tree.begin(), tree.end(), [](const auto& item) {
             return item.second == "old bytes" || item.second == "new bytes";
           });
  };
  for (const bool syncsInBatches : {false, true}) {
    cutEverywhere(saves("old bytes"), saves("new bytes"), isOldOrNew,
                  [&](const Tree& tree) { return allAre(tree, "new bytes"); },
                  {.syncsInBatches = syncsInBatches});
  }
}

TEST_F(StoragePowerCutTest, AnArchiveIsOldOrNewNeverHalf) {
  const auto saves = [](const char* page) {
    return [=] { return !save("promo.zip", pageArchive(page)); };
  };
  const auto isNew = [](const Tree& tree) { return tree == pageTree("new"); };
  for (const bool syncsInBatches : {false, true}) {
    const Ways ways{.syncsInBatches = syncsInBatches};
    cutEverywhere([] { return true; }, saves("new"),
                  [&](const Tree& tree) { return tree.empty() || isNew(tree); }, isNew, ways);
    cutEverywhere(
        saves("old"), saves("new"),
        [&](const Tree& tree) { return tree == pageTree("old") || isNew(tree); }, isNew, ways);
  }
}

TEST_F(StoragePowerCutTest, WithoutExchangeAnArchiveIsOldNewOrAbsentNeverHalf) {
  const auto saves = [](const char* page) {
    return [=] { return !save("promo.zip", pageArchive(page)); };
  };
  const auto isNew = [](const Tree& tree) { return tree == pageTree("new"); };
  cutEverywhere(
      saves("old"), saves("new"),
      [&](const Tree& tree) { return tree.empty() || tree == pageTree("old") || isNew(tree); },
      isNew, {.refusesExchanges = true});
}

}  // namespace
}  // namespace kiv::test
