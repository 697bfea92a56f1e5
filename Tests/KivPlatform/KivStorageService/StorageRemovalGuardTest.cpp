#include <filesystem>

#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/RemovalGuard.h"

namespace kiv::test {
namespace {

/// The clean-up of the service itself, with a removal guard.
class StorageRemovalGuardTest : public StorageServiceFixture {
 protected:
  static constexpr std::string_view leftOver = ".KivStorageService/dead/3/index.html";

  void replaceAnArchive() {
    EXPECT_FALSE(save("promo.zip", pageArchive("old")));
    EXPECT_FALSE(save("promo.zip", pageArchive("new")));
    EXPECT_EQ(treeOf(stored("")), pageTree("new"));
  }

  [[nodiscard]] bool holdsOldPage() const {
    const Tree left = temporaries();
    return std::any_of(left.begin(), left.end(),
                       [](const auto& item) { return item.second == "old"; });
  }
};

TEST_F(StorageRemovalGuardTest, WithTheRootNamedNothingStaysBehind) {
  const RemovalGuard guard({root()});
  put(root() + "/" + std::string(leftOver), "x");
  restart();
  EXPECT_EQ(temporaries(), Tree{});
  replaceAnArchive();
  EXPECT_FALSE(holdsOldPage());
  EXPECT_TRUE(save("promo.zip", "no archive"));
  restart();
  EXPECT_EQ(temporaries(), Tree{});
  EXPECT_EQ(treeOf(stored("")), pageTree("new"));
}

TEST_F(StorageRemovalGuardTest, WithoutTheRootSavingGoesOnAndOldThingsWaitForAProcessThatMay) {
  put(root() + "/" + std::string(leftOver), "x");
  {
    const RemovalGuard guard({scratch_.path("elsewhere")});
    restart();
    EXPECT_EQ(temporaries().count("dead/3/index.html"), 1U);
    replaceAnArchive();
    EXPECT_TRUE(holdsOldPage());
    KivStorageService::setRootPath("");
  }
  restart();
  EXPECT_EQ(temporaries(), Tree{});
  EXPECT_EQ(treeOf(stored("")), pageTree("new"));
}

TEST_F(StorageRemovalGuardTest, ATemporariesDirectoryThatIsALinkIsNotSweptThrough) {
  const std::string outside = scratch_.path("outside");
  put(outside + "/dead/3", "precious");
  std::filesystem::create_directory_symlink(outside, root() + "/.KivStorageService");
  const RemovalGuard guard({root()});
  restart();
  EXPECT_EQ(treeOf(outside)["dead/3"], "precious");
}

}  // namespace
}  // namespace kiv::test
