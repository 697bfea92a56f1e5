#include <filesystem>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/KivResourceStorageModule.h"
#include "Tests/Support/CacheFixture.h"
#include "Tests/Support/HostileNames.h"
#include "Tests/Support/RemovalGuard.h"

namespace {

using testing::HasSubstr;
using Module = KivResourceStorageModule;
using MaybeError = std::optional<kiv::Error>;

class KivResourceStorageModuleTest : public kiv::test::CacheFixture {
 protected:
  [[nodiscard]] std::string inBundle(const std::string& name) const {
    return packaged() + "/InnerAdResources.bundle/" + name;
  }
  static kiv::Array parse(std::string text, MaybeError* error = nullptr) {
    return Module::arrayOfDictionaryFromData_error(kiv::Data(std::move(text)), error);
  }
};

TEST_F(KivResourceStorageModuleTest, ExportsItsConstants) {
  EXPECT_EQ(KivResourceStorageModuleErrorDomain, "kiv.KivResource.KivResourceStorageModule");
  EXPECT_EQ(KivResouceArchiveKey[0], ".zip");
  EXPECT_EQ(KivResouceArchiveKey[1], "index.html");
}

// --- From names to paths -------------------------------------------------------------------------

TEST_F(KivResourceStorageModuleTest, APackagedFileWinsOverADownloadedOne) {
  write(stored("banner.png"), "downloaded");
  EXPECT_EQ(Module::pathToResourceFileWithName("banner.png"), stored("banner.png"));
  write(inBundle("banner.png"), "packaged");
  EXPECT_EQ(Module::pathToResourceFileWithName("banner.png"), inBundle("banner.png"));
}

TEST_F(KivResourceStorageModuleTest, AnArchiveIsFoundAsItsUnpackedPageAlone) {
  write(stored("promo.zip"), "archive");
  EXPECT_EQ(Module::pathToResourceFileWithName("promo.zip"), std::nullopt);
  write(stored("promo/index.html"), "page");
  EXPECT_EQ(Module::pathToResourceFileWithName("promo.zip"), stored("promo/index.html"));
  write(inBundle("promo/index.html"), "packaged page");
  EXPECT_EQ(Module::pathToResourceFileWithName("promo.zip"), inBundle("promo/index.html"));
  EXPECT_EQ(Module::pathToInnerResourceArchiveWithName("promo"), inBundle("promo/index.html"));
  EXPECT_EQ(Module::pathToInnerResourceArchiveWithName("other"), std::nullopt);
}

TEST_F(KivResourceStorageModuleTest, ASavedArchiveMayHaveNoPage) {
  write(stored("promo/other.html"), "no page");
  EXPECT_EQ(Module::pathToResourceFileWithName("promo.zip"), std::nullopt);
  write(stored("promo/index.html"), "page");
  EXPECT_EQ(Module::pathToResourceFileWithName("promo.zip"), stored("promo/index.html"));
}

TEST_F(KivResourceStorageModuleTest, AnUpperCaseArchiveNameIsAPlainFile) {
  write(stored("PROMO/index.html"), "page");
  EXPECT_EQ(Module::pathToResourceFileWithName("PROMO.ZIP"), std::nullopt);
  write(stored("PROMO.ZIP"), "file");
  EXPECT_EQ(Module::pathToResourceFileWithName("PROMO.ZIP"), stored("PROMO.ZIP"));
}

TEST_F(KivResourceStorageModuleTest, OnlyTheLastExtensionIsCutOffAnArchivesName) {
  write(stored("a.b/index.html"), "page");
  EXPECT_EQ(Module::pathToResourceFileWithName("a.b.zip"), stored("a.b/index.html"));
}

TEST_F(KivResourceStorageModuleTest, PackagedFilesAreFoundByTheirExactNames) {
  for (const char* name : {"plain", "two.dots.png", ".hidden"}) {
    write(inBundle(name), "x");
    EXPECT_EQ(Module::pathToInnerResourceFileWithName(name), inBundle(name));
  }
  for (const char* name : {"end", "dot."})
    write(inBundle(name), "x");
  EXPECT_EQ(Module::pathToInnerResourceFileWithName("end."), std::nullopt);
  EXPECT_EQ(Module::pathToInnerResourceFileWithName("dot."), std::nullopt);
  EXPECT_EQ(Module::pathToInnerResourceFileWithName("PLAIN"), std::nullopt);
}

TEST_F(KivResourceStorageModuleTest, APageOfAnArchiveHasItsDirectory) {
  write(stored("promo/index.html"), "page");
  write(stored("Resources/index.html"), "page of an archive of that name");
  write(inBundle("packed/index.html"), "packaged page");
  std::filesystem::create_directory_symlink(root(), root() + "/../link");
  const auto resolved = [](const std::string& path) {
    return std::filesystem::canonical(path).string();
  };
  EXPECT_EQ(Module::directoryOfPageAtPath(stored("promo/index.html")), resolved(stored("promo")));
  EXPECT_EQ(Module::directoryOfPageAtPath(stored("promo/../promo//index.html")),
            resolved(stored("promo")));
  EXPECT_EQ(Module::directoryOfPageAtPath(stored("Resources/index.html")),
            resolved(stored("Resources")));
  EXPECT_EQ(Module::directoryOfPageAtPath(inBundle("packed/index.html")),
            resolved(inBundle("packed")));
  EXPECT_EQ(
      Module::directoryOfPageAtPath(root() + "/../link/KivResource/Resources/promo/index.html"),
      resolved(stored("promo")));
}

TEST_F(KivResourceStorageModuleTest, APageOfOneFileHasNoDirectory) {
  for (const std::string& path :
       {stored("index.html"), stored("page.html"), stored("promo/page.html"),
        stored("promo/deeper/index.html"), inBundle("index.html"), root() + "/index.html",
        root() + "/KivResource/index.html", root() + "/elsewhere/index.html"}) {
    write(path, "page");
    EXPECT_EQ(Module::directoryOfPageAtPath(path), std::nullopt) << path;
  }
  EXPECT_EQ(Module::directoryOfPageAtPath(stored("none/index.html")), std::nullopt);
  EXPECT_EQ(Module::directoryOfPageAtPath(""), std::nullopt);
  std::filesystem::create_directory_symlink(root() + "/elsewhere", stored("out"));
  EXPECT_EQ(Module::directoryOfPageAtPath(stored("out/index.html")), std::nullopt);
}

TEST_F(KivResourceStorageModuleTest, ANameFoundNowhereYieldsNothing) {
  EXPECT_EQ(Module::pathToResourceFileWithName("nothing.png"), std::nullopt);
}

TEST_F(KivResourceStorageModuleTest, DirectoriesAndDevicesAreNoStoredFiles) {
  std::filesystem::create_directories(stored("folder.png"));
  std::filesystem::create_directories(inBundle("inner.png"));
  std::filesystem::create_directories(stored("page/index.html"));
  std::filesystem::create_symlink("/dev/null", stored("device.png"));
  for (const char* name : {"folder.png", "inner.png", "page.zip", "device.png"}) {
    EXPECT_EQ(Module::pathToResourceFileWithName(name), std::nullopt) << name;
  }
}

class HostileStoredNameTest : public KivResourceStorageModuleTest,
                              public testing::WithParamInterface<std::string> {};

TEST_P(HostileStoredNameTest, IsFoundNowhereAndNotStored) {
  // Pages that a lookup with an unchecked name would find.
  for (const std::string& place : {stored("index.html"), root() + "/KivResource/index.html",
                                   inBundle("index.html"), packaged() + "/index.html"}) {
    write(place, "page");
  }
  EXPECT_EQ(Module::pathToResourceFileWithName(GetParam()), std::nullopt);
  MaybeError error;
  EXPECT_FALSE(Module::saveData_withResourceFileName_error(kiv::Data("bytes"), GetParam(), &error));
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, KivStorageServiceErrorDomain);
  EXPECT_FALSE(error->localizedDescription().empty());
  EXPECT_EQ(read(stored("index.html")), "page");
}

INSTANTIATE_TEST_SUITE_P(Names, HostileStoredNameTest,
                         testing::ValuesIn(kiv::test::hostileLinks()));
INSTANTIATE_TEST_SUITE_P(Paths, HostileStoredNameTest, testing::Values("a/b.png", "../a.png"));

TEST_F(KivResourceStorageModuleTest, HostileNamesAreNotLookedUpInTheBundleEither) {
  write(packaged() + "/index.html", "page");
  write(inBundle("index.html"), "page");
  for (const char* name : {"..", ".", "", "../index.html"}) {
    EXPECT_EQ(Module::pathToInnerResourceArchiveWithName(name), std::nullopt) << name;
    EXPECT_EQ(Module::pathToInnerResourceFileWithName(name), std::nullopt) << name;
  }
}

// --- Saving and removing files -------------------------------------------------------------------

TEST_F(KivResourceStorageModuleTest, SavesAFileUnderItsNameAndReplacesIt) {
  EXPECT_TRUE(Module::saveData_withResourceFileName_error(kiv::Data("one"), "a.png"));
  EXPECT_EQ(read(stored("a.png")), "one");
  EXPECT_TRUE(Module::saveData_withResourceFileName_error(kiv::Data("two"), "a.png"));
  EXPECT_EQ(read(stored("a.png")), "two");
  EXPECT_EQ(Module::pathToResourceFileWithName("a.png"), stored("a.png"));
}

TEST_F(KivResourceStorageModuleTest, AFailureToSaveReportsTheServicesError) {
  MaybeError error;
  EXPECT_FALSE(Module::saveData_withResourceFileName_error(kiv::Data("no zip"), "a.zip", &error));
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, KivStorageServiceErrorDomain);
  EXPECT_FALSE(exists(stored("a")));
  EXPECT_FALSE(exists(stored("a.zip")));
}

TEST_F(KivResourceStorageModuleTest, RemovingAnArchivesPageRemovesItsWholeDirectory) {
  write(stored("promo/index.html"), "page");
  write(stored("promo/css/style.css"), "style");
  write(stored("other.png"), "other");
  Module::removeResourceFileWithPath_error(stored("promo/index.html"));
  EXPECT_FALSE(exists(stored("promo")));
  EXPECT_TRUE(exists(stored("other.png")));
}

TEST_F(KivResourceStorageModuleTest, RemovingAPageInTheResourcesDirectoryRemovesOnlyThatFile) {
  write(stored("index.html"), "page");
  write(stored("other.png"), "other");
  Module::removeResourceFileWithPath_error(stored("index.html"));
  EXPECT_FALSE(exists(stored("index.html")));
  EXPECT_TRUE(exists(stored("other.png")));
}

TEST_F(KivResourceStorageModuleTest, RemovingThePageOfAnArchiveNamedResourcesLeavesTheRest) {
  write(stored("Resources/index.html"), "page");
  write(stored("Resources/style.css"), "style");
  Module::removeResourceFileWithPath_error(stored("Resources/index.html"));
  EXPECT_FALSE(exists(stored("Resources/index.html")));
  EXPECT_TRUE(exists(stored("Resources/style.css")));
}

TEST_F(KivResourceStorageModuleTest, RemovingAPackagedFileRemovesItLikeAnyOther) {
  const kiv::test::UnguardedRemovals unguarded;
  write(inBundle("a.png"), "a");
  Module::removeResourceFileWithPath_error(inBundle("a.png"));
  EXPECT_FALSE(exists(inBundle("a.png")));
}

TEST_F(KivResourceStorageModuleTest, RemovingWhatIsNotThereReportsOnlyThroughTheErrorPlace) {
  write(stored("kept.png"), "x");
  MaybeError error;
  Module::removeResourceFileWithPath_error(stored("missing.png"), &error);
  EXPECT_TRUE(error.has_value());
  Module::removeResourceFileWithPath_error(stored("missing.png"));
  EXPECT_TRUE(exists(stored("kept.png")));
}

// --- The saved list ------------------------------------------------------------------------------

TEST_F(KivResourceStorageModuleTest, LoadingBeforeAnythingWasSavedYieldsNothing) {
  MaybeError error;
  EXPECT_FALSE(Module::loadResourcesListWithError(&error).has_value());
  EXPECT_TRUE(error.has_value());
}

TEST_F(KivResourceStorageModuleTest, AnEmptyListIsSavedAsAnEmptyArray) {
  EXPECT_TRUE(Module::saveResourcesList_error({}));
  EXPECT_EQ(read(listPath()), "[]\n");
  MaybeError error;
  const auto list = Module::loadResourcesListWithError(&error);
  ASSERT_TRUE(list.has_value());
  EXPECT_TRUE(list->empty());
  EXPECT_FALSE(error.has_value());
}

TEST_F(KivResourceStorageModuleTest, AListComesBackWithEveryKindOfValueInOrder) {
  const kiv::Array list{kiv::Dictionary{{"z", 18446744073709551615U},
                                        {"a", -3},
                                        {"m", 4.5},
                                        {"t", true},
                                        {"n", nullptr},
                                        {"s", "\u00e9 \"quoted\" \n"},
                                        {"nested", kiv::Array{1, kiv::Dictionary{{"k", "v"}}}}},
                        kiv::Dictionary{{"second", 2}}};
  ASSERT_TRUE(Module::saveResourcesList_error(list));
  EXPECT_THAT(read(listPath()), HasSubstr("[\n  {\n    \"z\": 18446744073709551615,\n"));
  EXPECT_EQ(Module::loadResourcesListWithError(), list);
}

TEST_F(KivResourceStorageModuleTest, AListThatIsNoJsonGivesAnEmptyArrayAndTheReadersError) {
  for (const char* text : {"not JSON", "12", "\"text\"", "", "[{\"a\": 1}"}) {
    write(listPath(), text);
    MaybeError error;
    const auto list = Module::loadResourcesListWithError(&error);
    ASSERT_TRUE(list.has_value()) << text;
    EXPECT_TRUE(list->empty()) << text;
    ASSERT_TRUE(error.has_value()) << text;
    EXPECT_EQ(error->domain, kiv::JSONErrorDomain) << text;
    EXPECT_EQ(read(listPath()), text);
  }
}

TEST_F(KivResourceStorageModuleTest, AListThatIsAnObjectIsError110) {
  write(listPath(), "{\"items\": []}");
  MaybeError error;
  const auto list = Module::loadResourcesListWithError(&error);
  ASSERT_TRUE(list.has_value());
  EXPECT_TRUE(list->empty());
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, KivResourceStorageModuleErrorDomain);
  EXPECT_EQ(error->code, 110);
  EXPECT_EQ(error->localizedDescription(), "Data is not array.");
  EXPECT_EQ(error->userInfo.size(), 1U);
}

TEST_F(KivResourceStorageModuleTest, ElementsThatAreNoObjectsAreDropped) {
  MaybeError error;
  const auto list = parse("[{\"a\": 1}, 7, {\"b\": 2}, null, [], \"x\"]", &error);
  EXPECT_FALSE(error.has_value());
  EXPECT_EQ(list, (kiv::Array{kiv::Dictionary{{"a", 1}}, kiv::Dictionary{{"b", 2}}}));
}

TEST_F(KivResourceStorageModuleTest, WithoutAnErrorPlaceABadListIsStillEmpty) {
  EXPECT_TRUE(parse("{}").empty());
  EXPECT_TRUE(parse("no").empty());
}

TEST_F(KivResourceStorageModuleTest, AListThatCannotBeWrittenLeavesThePreviousOne) {
  ASSERT_TRUE(Module::saveResourcesList_error(kiv::Array{kiv::Dictionary{{"a", 1}}}));
  const auto before = read(listPath());
  for (const kiv::Value& value :
       {kiv::Value(std::numeric_limits<double>::infinity()),
        kiv::Value(std::numeric_limits<double>::quiet_NaN()), kiv::Value("\xff broken")}) {
    MaybeError error;
    const kiv::Array list{kiv::Dictionary{{"a", value}}};
    EXPECT_FALSE(Module::saveResourcesList_error(list, &error));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain, kiv::JSONErrorDomain);
    EXPECT_FALSE(Module::dataForArray_error(list).has_value());
    EXPECT_EQ(read(listPath()), before);
  }
}

TEST_F(KivResourceStorageModuleTest, AListThatCannotBeStoredFailsWithTheServicesError) {
  std::filesystem::create_directories(listPath());
  MaybeError error;
  EXPECT_FALSE(Module::saveResourcesList_error({}, &error));
  EXPECT_TRUE(error.has_value());
}

}  // namespace
