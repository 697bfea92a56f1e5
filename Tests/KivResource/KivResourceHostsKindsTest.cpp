// Kinds that a host registers: from configurations and from the saved list.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceStandard.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"
#include "Tests/KivResource/Leaflet.h"
#include "Tests/Support/ManagerFixture.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Code = KivResourceFactoryErrorCode;
using Factory = KivResourceFactory;
using Maintenance = KivResourceMaintenance;

/// It has neither a default constructor nor an emptyInstance().
class Unique : public KivResource {
 public:
  explicit Unique(int) {}
  static std::shared_ptr<KivResource> make(const Dictionary& dictionary,
                                           const std::string& engine) {
    return initialised(std::make_shared<Unique>(1), dictionary, engine);
  }
};

const Dictionary example{{"leaflet", "a.pdf"}, {"pages", 2}};

Dictionary leaflet(const std::string& identifier, std::uint64_t updated, const std::string& link) {
  Dictionary item = plainOf(identifier, updated);
  item.set("engine", "leaflet");
  item.set("leaflet", link);
  return item;
}

class KivResourceHostsKindsTest : public ManagerFixture {
 protected:
  ~KivResourceHostsKindsTest() override { Factory::unregisterKind("leaflet"); }

  static void registerLeaflets() {
    ASSERT_TRUE(Factory::registerKind("leaflet", Leaflet::make, example));
  }
  /// The code of the error with which the registration fails; nothing if it does not.
  static std::optional<Code> refusal(std::string_view engine, const Factory::Maker& maker,
                                     const Dictionary& members = example) {
    std::optional<Error> error;
    if (Factory::registerKind(engine, maker, members, &error)) return std::nullopt;
    EXPECT_EQ(error->domain, KivResourceFactoryErrorDomain);
    EXPECT_THAT(error->localizedDescription(), HasSubstr("the engine \"" + std::string(engine)));
    return static_cast<Code>(error->code);
  }
  [[nodiscard]] bool isLeaflet(std::size_t index) const {
    return dynamic_cast<const Leaflet*>(entry(index).get()) != nullptr;
  }
};

TEST_F(KivResourceHostsKindsTest, ARegisteredKindIsMadeAndSurvivesARestart) {
  registerLeaflets();
  load({leaflet("a", 1, "x/a1.pdf"), banner("b", 1, "x/b.png")});
  EXPECT_TRUE(exists(stored("a1.pdf")));
  restart();
  ASSERT_THAT(registry(), ElementsAre("a", "b"));
  EXPECT_TRUE(isLeaflet(0));
  EXPECT_FALSE(isLeaflet(1));
  const auto copies = manager->loadedResourcesWithID("a");
  ASSERT_THAT(copies, SizeIs(1));
  EXPECT_TRUE(dynamic_cast<const Leaflet*>(copies[0].get()));
  const auto audit = Maintenance::audit(*manager);
  ASSERT_TRUE(audit);
  EXPECT_THAT(audit->orphaned, IsEmpty());
  EXPECT_THAT(audit->missing, IsEmpty());
}

TEST_F(KivResourceHostsKindsTest, ItsReplacedFilesAreRemovedAndLostOnesLoadedAgain) {
  registerLeaflets();
  load({leaflet("a", 1, "x/a1.pdf")});
  load({leaflet("a", 2, "x/a2.pdf")});
  EXPECT_FALSE(exists(stored("a1.pdf")));
  std::filesystem::remove(stored("a2.pdf"));
  restart();
  EXPECT_THAT(registry(), IsEmpty());
  load({leaflet("a", 2, "x/a2.pdf")});
  EXPECT_TRUE(isLeaflet(0));
  EXPECT_TRUE(exists(stored("a2.pdf")));
}

TEST_F(KivResourceHostsKindsTest, AProcessWithoutTheKindKeepsItsEntriesAndFiles) {
  registerLeaflets();
  load({leaflet("a", 1, "x/a1.pdf")});
  ASSERT_TRUE(Factory::unregisterKind("leaflet"));
  restart();
  ASSERT_THAT(registry(), ElementsAre("a"));
  EXPECT_FALSE(isLeaflet(0));
  load({plain("b", 1)});
  write(stored("orphan.pdf"), "bytes");
  const auto cleanUp = Maintenance::cleanUpOrphans(*manager, Maintenance::Mode::remove);
  ASSERT_TRUE(cleanUp);
  ASSERT_THAT(cleanUp->removed, SizeIs(1));
  EXPECT_THAT(cleanUp->removed[0].path, HasSubstr("orphan.pdf"));
  registerLeaflets();
  restart();
  ASSERT_THAT(registry(), ElementsAre("a", "b"));
  EXPECT_TRUE(isLeaflet(0));
  EXPECT_TRUE(entry(0)->filesExist());
}

TEST_F(KivResourceHostsKindsTest, AnEngineThatNobodyRegisteredMakesAPlainResource) {
  const auto resource = Factory::createResourceFromDictionary(leaflet("a", 1, "x/a.pdf"));
  ASSERT_TRUE(resource);
  EXPECT_TRUE(resource->filesExist());
  EXPECT_EQ(Factory::requiredKeysOfEngine("leaflet"), std::nullopt);
  EXPECT_FALSE(Factory::unregisterKind("leaflet"));
}

TEST_F(KivResourceHostsKindsTest, AnItemThatTheKindRejectsIsInvalid) {
  registerLeaflets();
  Dictionary item = leaflet("a", 1, "x/a.pdf");
  item.remove("leaflet");
  EXPECT_FALSE(Factory::createResourceFromDictionary(item));
  EXPECT_THAT(log.lines().back(), HasSubstr("Create resource error"));
}

TEST_F(KivResourceHostsKindsTest, TheStringsOfTheExampleAreTheRequiredKeys) {
  registerLeaflets();
  const auto keys = Factory::requiredKeysOfEngine("leaflet");
  ASSERT_TRUE(keys);
  Factory::unregisterKind("leaflet");
  EXPECT_THAT(keys->strings, ElementsAre("leaflet"));
  EXPECT_THAT(keys->files, IsEmpty());
}

TEST_F(KivResourceHostsKindsTest, AnEngineIsRegisteredOnce) {
  registerLeaflets();
  EXPECT_EQ(refusal("leaflet", KivResourceStandard::initWithDictionary_engine),
            Code::engineNotFree);
  for (const char* const engine : {"", "eco_standard", "eco_video", "eco_fs", "eco_context"})
    EXPECT_EQ(refusal(engine, Leaflet::make), Code::engineNotFree) << engine;
  ASSERT_TRUE(Factory::unregisterKind("leaflet"));
  registerLeaflets();
}

TEST_F(KivResourceHostsKindsTest, AnExampleThatMakesNoResourceIsRefused) {
  EXPECT_EQ(refusal("leaflet", Leaflet::make, {}), Code::exampleNotValid);
  EXPECT_EQ(refusal("leaflet", Leaflet::make, {{"leaflet", 1}}), Code::exampleNotValid);
  EXPECT_EQ(refusal("leaflet", nullptr), Code::exampleNotValid);
  EXPECT_FALSE(Factory::registerKind("leaflet", nullptr));
  EXPECT_FALSE(Factory::unregisterKind("leaflet"));
}

TEST_F(KivResourceHostsKindsTest, AKindThatCannotBeCopiedIsRefused) {
  EXPECT_EQ(refusal("leaflet", Unique::make), Code::notCopyable);
  EXPECT_FALSE(Factory::unregisterKind("leaflet"));
}

TEST_F(KivResourceHostsKindsTest, WhatTheMakerOwnsIsFreedWithoutALock) {
  struct Owned {
    ~Owned() { EXPECT_FALSE(Factory::unregisterKind("leaflet")); }
  };
  auto owned = std::make_shared<Owned>();
  const std::weak_ptr<Owned> observed = owned;
  ASSERT_TRUE(Factory::registerKind(
      "leaflet",
      [owned = std::move(owned)](const Dictionary& dictionary, const std::string& engine) {
        return Leaflet::make(dictionary, engine);
      },
      example));
  EXPECT_FALSE(observed.expired());
  ASSERT_TRUE(Factory::unregisterKind("leaflet"));
  EXPECT_TRUE(observed.expired());
}

}  // namespace
}  // namespace kiv::test
