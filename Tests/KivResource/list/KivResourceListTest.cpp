#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "KivResource/KivResourceStandard.h"
#include "KivResource/KivResourceVideo.h"
#include "KivResource/KivResourceWeb.h"
#include "KivResource/list/KivResourceList.h"

namespace {

using kiv::ResourceArray;
using kiv::ResourceList;

/// A resource class of a host that counts the calls of useFilePaths().
class HostKind final : public KivResource {
 public:
  static std::shared_ptr<HostKind> make(const kiv::Dictionary& dictionary) {
    return initialised(std::shared_ptr<HostKind>(new HostKind), dictionary, "host");
  }
  [[nodiscard]] std::vector<std::string> useFilePaths() const override {
    ++questions;
    return paths_;
  }
  void setPaths(std::vector<std::string> paths) {
    setPathsSilently(std::move(paths));
    noteChange();
  }
  /// Changes the paths without the call of noteChange() that host classes owe.
  void setPathsSilently(std::vector<std::string> paths) { paths_ = std::move(paths); }
  [[nodiscard]] std::optional<kiv::Value> valueForProperty(std::string_view name) const override {
    if (name == "type" || name == "resourceID") return kiv::Value("of its own");
    return KivResource::valueForProperty(name);
  }

  static inline int questions = 0;

 private:
  std::vector<std::string> paths_;
};

kiv::Dictionary item(const std::string& identifier, const std::string& type) {
  return {{"name", "n"},
          {"type", type},
          {"banner_id", identifier},
          {"priority", 1},
          {"updated", 1},
          {"market_url", "m"},
          {"image_728x90", ""},
          {"title", "t"},
          {"image", ""},
          {"video_file_landscape", ""},
          {"html", ""}};
}

std::shared_ptr<KivResourceStandard> banner(const std::string& identifier,
                                            const std::string& path = "") {
  auto made = KivResourceStandard::initWithDictionary_engine(item(identifier, "t"), "eco_standard");
  made->setImage(path);
  made->setFileIsLoaded(!path.empty());
  return made;
}

std::vector<std::string> paths(const KivResource& resource) {
  return resource.useFilePaths();
}

// --- A linear search as the reference for all lookups --------------------------------------------

struct PlainWalk {
  ResourceArray list;

  [[nodiscard]] ResourceArray select(const std::string& property, const std::string& value) const {
    ResourceArray found;
    for (const auto& resource : list) {
      const auto answer = property == "type" ? resource->type() : resource->resourceID();
      if (answer == value) found.push_back(resource);
    }
    return found;
  }
  [[nodiscard]] bool isPathUsedByOthers(const std::string& path, const KivResource& owner) const {
    return std::any_of(list.begin(), list.end(), [&](const auto& other) {
      const auto used = paths(*other);
      return other.get() != &owner && std::find(used.begin(), used.end(), path) != used.end();
    });
  }
};

ResourceList::Counterparts counterpartsByWalk(ResourceArray list, const ResourceArray& resources) {
  ResourceList::Counterparts counterparts;
  for (const auto& resource : resources) {
    const auto found = std::find_if(list.begin(), list.end(), [&](const auto& loaded) {
      return loaded->resourceID() == resource->resourceID();
    });
    counterparts.ofEach.push_back(found == list.end() ? nullptr : *found);
    if (counterparts.ofEach.back()) std::erase(list, counterparts.ofEach.back());
  }
  counterparts.rest = std::move(list);
  return counterparts;
}

ResourceArray iterated(const ResourceList& list) {
  ResourceArray resources;
  for (const auto& resource : list)
    resources.push_back(resource);
  return resources;
}

// --- Order and identity --------------------------------------------------------------------------

TEST(ResourceListTest, KeepsItsOrderAndItsDuplicates) {
  const auto a = banner("a");
  const auto b = banner("b");
  ResourceList list({b, a, b});
  EXPECT_EQ(list.size(), 3U);
  EXPECT_EQ(list.resources(), (ResourceArray{b, a, b}));
  EXPECT_EQ(iterated(list), list.resources());
  EXPECT_EQ(list[2], b);
}

TEST(ResourceListTest, RemovesEveryOccurrenceOfThatVeryObject) {
  const auto a = banner("a");
  const auto twin = banner("a");
  ResourceList list({a, twin, a});
  list.remove(a);
  EXPECT_EQ(list.size(), 1U);
  EXPECT_EQ(iterated(list), ResourceArray{twin});
  list.remove(a);
  list.remove(nullptr);
  list.append(nullptr);
  EXPECT_EQ(list.resources(), ResourceArray{twin});
  list.append(a);
  EXPECT_EQ(list.resourcesWithID("a"), (ResourceArray{twin, a}));
}

TEST(ResourceListTest, AnEmptyListAnswersNothing) {
  const ResourceList list;
  EXPECT_TRUE(list.empty());
  EXPECT_TRUE(list.resources().empty());
  EXPECT_TRUE(iterated(list).empty());
  EXPECT_TRUE(list.resourcesWithID("").empty());
  EXPECT_FALSE(list.isPathUsedByOthers("", *banner("a")));
}

// --- Counterparts --------------------------------------------------------------------------------

TEST(ResourceListTest, EachResourceIsACounterpartOnceInTheListsOrder) {
  const auto first = banner("a");
  const auto other = banner("b");
  const auto second = banner("a");
  const ResourceList list({first, other, second});
  const auto counterparts =
      list.counterparts({banner("a"), banner("nobody"), banner("a"), banner("a")});
  EXPECT_EQ(counterparts.ofEach, (ResourceArray{first, nullptr, second, nullptr}));
  EXPECT_EQ(counterparts.rest, ResourceArray{other});
  EXPECT_EQ(list.resourcesWithID("a"), (ResourceArray{first, second}));
}

TEST(ResourceListTest, ACounterpartIsOneAtEveryPlaceWhereItStands) {
  const auto twice = banner("a");
  const auto other = banner("a");
  const ResourceList list({twice, other, twice});
  EXPECT_EQ(list.counterparts({banner("a")}).rest, ResourceArray{other});
  EXPECT_EQ(list.counterparts({banner("a"), banner("a"), banner("a")}).ofEach,
            (ResourceArray{twice, other, nullptr}));
}

TEST(ResourceListTest, WhatIsNoCounterpartRestsAsOftenAsItStands) {
  const auto twice = banner("a");
  const auto other = banner("b");
  const ResourceList list({twice, other, twice});
  EXPECT_EQ(list.counterparts({}).rest, (ResourceArray{twice, other, twice}));
}

TEST(ResourceListTest, AnEmptyIdentifierHasACounterpart) {
  const auto nameless = banner("");
  const ResourceList list({nameless});
  EXPECT_EQ(list.counterparts({banner("")}).ofEach, ResourceArray{nameless});
}

// --- Properties that change under the index ------------------------------------------------------

TEST(ResourceListTest, FindsAResourceUnderTheIdentifierAndTypeThatItHasNow) {
  const auto a = banner("a");
  ResourceList list({a});
  ASSERT_EQ(list.resourcesWithID("a").size(), 1U);
  a->setResourceID("b");
  a->setType("other");
  EXPECT_TRUE(list.resourcesWithID("a").empty());
  EXPECT_EQ(list.resourcesWithID("b"), ResourceArray{a});
  EXPECT_EQ(list.resourcesWithType("other"), ResourceArray{a});
  a->setResourceID("c");
  list.remove(a);
  EXPECT_TRUE(list.empty());
}

TEST(ResourceListTest, SeesThePathsThatSettersBring) {
  const auto standard = banner("a");
  const auto web = KivResourceWeb::initWithDictionary_engine(item("w", "t"), "eco_fs");
  const auto video = KivResourceVideo::initWithDictionary_engine(item("v", "t"), "eco_video");
  const auto stranger = banner("x");
  ResourceList list({standard, web, video});
  ASSERT_FALSE(list.isPathUsedByOthers("/p", *stranger));
  standard->setImage("/p");
  EXPECT_FALSE(list.isPathUsedByOthers("/p", *stranger));
  standard->setFileIsLoaded(true);
  EXPECT_TRUE(list.isPathUsedByOthers("/p", *stranger));
  EXPECT_FALSE(list.isPathUsedByOthers("/p", *standard));
  web->setHtml("/q");
  web->setFileIsLoaded(true);
  EXPECT_TRUE(list.isPathUsedByOthers("/q", *stranger));
  video->addPath("/r");
  EXPECT_TRUE(list.isPathUsedByOthers("/r", *stranger));
  video->setFilePaths(
      std::make_shared<kiv::StringList>(std::initializer_list<std::string_view>{"/s"}));
  EXPECT_TRUE(list.isPathUsedByOthers("/s", *stranger));
  EXPECT_FALSE(list.isPathUsedByOthers("/r", *stranger));
}

TEST(ResourceListTest, SeesAPathThatIsWrittenIntoAListThatWasHandedOut) {
  const auto video = KivResourceVideo::initWithDictionary_engine(item("v", "t"), "eco_video");
  const auto stranger = banner("x");
  ResourceList list({video});
  ASSERT_FALSE(list.isPathUsedByOthers("/p", *stranger));
  const auto handedOut = video->filePaths();
  ASSERT_FALSE(list.isPathUsedByOthers("/p", *stranger));
  handedOut->push_back("/p");
  EXPECT_TRUE(list.isPathUsedByOthers("/p", *stranger));
  handedOut->clear();
  EXPECT_FALSE(list.isPathUsedByOthers("/p", *stranger));
  const auto given = std::make_shared<kiv::StringList>();
  video->setFilePaths(given);
  ASSERT_FALSE(list.isPathUsedByOthers("/q", *stranger));
  given->assign({"/q"});
  EXPECT_TRUE(list.isPathUsedByOthers("/q", *stranger));
}

TEST(ResourceListTest, SeesAPathThatIsWrittenIntoAListFromBeforeItsResourceWasListed) {
  const auto video = KivResourceVideo::initWithDictionary_engine(item("v", "t"), "eco_video");
  const auto handedOut = video->filePaths();
  const auto stranger = banner("x");
  ResourceList list({video});
  ASSERT_FALSE(list.isPathUsedByOthers("/p", *stranger));
  handedOut->push_back("/p");
  EXPECT_TRUE(list.isPathUsedByOthers("/p", *stranger));
}

TEST(ResourceListTest, SeesThePathsThatAHostsOwnKindReports) {
  const auto host = HostKind::make(item("h", "t"));
  const auto stranger = banner("x");
  ResourceList list({banner("a"), host});
  ASSERT_FALSE(list.isPathUsedByOthers("/p", *stranger));
  host->setPaths({"/p", "/q"});
  EXPECT_TRUE(list.isPathUsedByOthers("/p", *stranger));
  EXPECT_TRUE(list.isPathUsedByOthers("/q", *stranger));
  host->setPaths({"/q"});
  EXPECT_FALSE(list.isPathUsedByOthers("/p", *stranger));
  list.remove(host);
  EXPECT_FALSE(list.isPathUsedByOthers("/q", *stranger));
}

TEST(ResourceListTest, FindsAHostsOwnKindWithoutAWalk) {
  ResourceList list;
  for (int number = 0; number < 1000; ++number) {
    const auto host = HostKind::make(item("h" + std::to_string(number), "t"));
    host->setPaths({"/f" + std::to_string(number)});
    list.append(host);
  }
  const auto stranger = banner("x");
  ASSERT_TRUE(list.isPathUsedByOthers("/f500", *stranger));
  HostKind::questions = 0;
  EXPECT_TRUE(list.isPathUsedByOthers("/f7", *stranger));
  EXPECT_FALSE(list.isPathUsedByOthers("/f7", *list.resourcesWithID("h7")[0]));
  EXPECT_FALSE(list.isPathUsedByOthers("/other", *stranger));
  EXPECT_EQ(list.resourcesWithID("h7").size(), 1U);
  EXPECT_EQ(HostKind::questions, 1);
  list.append(banner("y", "/f7"));
  list.remove(list.resourcesWithID("h7")[0]);
  EXPECT_TRUE(list.isPathUsedByOthers("/f7", *stranger));
  EXPECT_LE(HostKind::questions, 2);
}

TEST(ResourceListTest, GoesByIdentifierAndTypeWhateverAKindAnswersForTheProperties) {
  const auto host = HostKind::make(item("h", "t"));
  const ResourceList list({host});
  EXPECT_EQ(list.resourcesWithID("h"), ResourceArray{host});
  EXPECT_EQ(list.resourcesWithType("t"), ResourceArray{host});
  EXPECT_TRUE(list.resourcesWithID("of its own").empty());
  EXPECT_EQ(list.counterparts({banner("h")}).ofEach, ResourceArray{host});
}

TEST(ResourceListTest, AHostsOwnKindThatChangesSilentlyIsStillRemoved) {
  const auto host = HostKind::make(item("h", "t"));
  host->setPaths({"/p"});
  const auto stranger = banner("x");
  ResourceList list({host});
  ASSERT_TRUE(list.isPathUsedByOthers("/p", *stranger));
  host->setPathsSilently({"/q"});
  list.remove(host);
  EXPECT_TRUE(list.empty());
  EXPECT_FALSE(list.isPathUsedByOthers("/p", *stranger));
  EXPECT_FALSE(list.isPathUsedByOthers("/q", *stranger));
}

// --- Several lists -------------------------------------------------------------------------------

TEST(ResourceListTest, EveryListOfAResourceSeesItsChanges) {
  const auto video = KivResourceVideo::initWithDictionary_engine(item("v", "t"), "eco_video");
  const auto stranger = banner("x");
  ResourceList first({video});
  const ResourceList second({video});
  ASSERT_TRUE(first.resourcesWithID("w").empty());
  ASSERT_TRUE(second.resourcesWithID("w").empty());
  video->setResourceID("w");
  EXPECT_EQ(first.resourcesWithID("w"), ResourceArray{video});
  EXPECT_EQ(second.resourcesWithID("w"), ResourceArray{video});
  ASSERT_FALSE(first.isPathUsedByOthers("/p", *stranger));
  ASSERT_FALSE(second.isPathUsedByOthers("/p", *stranger));
  video->setFilePaths(std::make_shared<kiv::StringList>());
  video->filePaths()->push_back("/p");
  EXPECT_TRUE(first.isPathUsedByOthers("/p", *stranger));
  EXPECT_TRUE(second.isPathUsedByOthers("/p", *stranger));
  first.remove(video);
  video->filePaths()->clear();
  EXPECT_FALSE(second.isPathUsedByOthers("/p", *stranger));
}

TEST(ResourceListTest, AResourceOutlivesItsLists) {
  const auto a = banner("a");
  {
    const ResourceList list({a});
    ASSERT_EQ(list.resourcesWithID("a").size(), 1U);
  }
  a->setResourceID("b");
  const ResourceList list({a});
  ASSERT_EQ(list.resourcesWithID("b").size(), 1U);
  a->setResourceID("c");
  EXPECT_EQ(list.resourcesWithID("c"), ResourceArray{a});
}

// --- Random operations ---------------------------------------------------------------------------

class RandomOperations {
 public:
  explicit RandomOperations(std::uint32_t seed) : random_(seed) {
    for (int number = 0; number < 40; ++number)
      pool_.push_back(newResource());
  }

  void step() {
    const auto& resource = pool_[below(pool_.size())];
    switch (below(8)) {
      case 0:
      case 1:
      case 2:
        list_.append(resource);
        walk_.list.push_back(resource);
        break;
      case 3:
        list_.remove(resource);
        std::erase(walk_.list, resource);
        break;
      case 4:
        removeSeveral();
        break;
      case 5:
        resource->setResourceID(name());
        break;
      case 6:
        resource->setType(name());
        break;
      default:
        changePaths(*resource);
    }
  }

  void check() {
    ASSERT_EQ(list_.size(), walk_.list.size());
    ASSERT_EQ(iterated(list_), walk_.list);
    const std::string value = name();
    ASSERT_EQ(list_.resourcesWithID(value), walk_.select("resourceID", value));
    ASSERT_EQ(list_.resourcesWithType(value), walk_.select("type", value));
    const auto& owner = *pool_[below(pool_.size())];
    ASSERT_EQ(list_.isPathUsedByOthers(value, owner), walk_.isPathUsedByOthers(value, owner));
    if (below(20) == 0) {
      ASSERT_EQ(list_.resources(), walk_.list);
    }
    if (below(10) == 0) checkCounterparts();
  }

 private:
  std::size_t below(std::size_t bound) { return random_() % bound; }
  std::string name() { return std::string(1, static_cast<char>('a' + below(6))); }

  std::shared_ptr<KivResource> newResource() {
    switch (below(4)) {
      case 0:
        return KivResource::initWithDictionary_engine(item(name(), name()), "e");
      case 1:
        return banner(name(), name());
      case 2:
        return HostKind::make(item(name(), name()));
      default:
        return KivResourceVideo::initWithDictionary_engine(item(name(), name()), "eco_video");
    }
  }

  void checkCounterparts() {
    ResourceArray resources;
    for (int number = 0; number < 12; ++number)
      resources.push_back(banner(name()));
    const auto counterparts = list_.counterparts(resources);
    const auto expected = counterpartsByWalk(walk_.list, resources);
    ASSERT_EQ(counterparts.ofEach, expected.ofEach);
    ASSERT_EQ(counterparts.rest, expected.rest);
  }

  void removeSeveral() {
    ResourceArray several;
    for (int number = 0; number < 3; ++number)
      several.push_back(pool_[below(pool_.size())]);
    list_.removeAll(several);
    for (const auto& resource : several)
      std::erase(walk_.list, resource);
  }

  void changePaths(KivResource& resource) {
    if (auto* standard = dynamic_cast<KivResourceStandard*>(&resource)) {
      standard->setImage(name());
      standard->setFileIsLoaded(below(2) == 0);
    } else if (auto* host = dynamic_cast<HostKind*>(&resource)) {
      host->setPaths({name(), name()});
    } else if (auto* video = dynamic_cast<KivResourceVideo*>(&resource)) {
      if (below(8) == 0) {
        video->filePaths()->assign({name()});
      } else {
        video->addPath(name());
      }
    }
  }

  std::mt19937 random_;
  ResourceArray pool_;
  ResourceList list_;
  PlainWalk walk_;
};

TEST(ResourceListTest, AnswersLikeThePlainWalkAfterRandomOperations) {
  const std::uint32_t seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  RecordProperty("seed", std::to_string(seed));
  RandomOperations operations(seed);
  for (int number = 0; number < 20000 && !testing::Test::HasFatalFailure(); ++number) {
    operations.step();
    operations.check();
  }
}

}  // namespace
