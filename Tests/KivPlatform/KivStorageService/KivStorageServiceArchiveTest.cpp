#include <filesystem>

#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"

namespace kiv::test {
namespace {

using Code = KivStorageServiceErrorCode;

/// Valid archives are unpacked completely; invalid ones are rejected and leave nothing.
class KivStorageServiceArchiveTest : public StorageServiceFixture {
 protected:
  /// The contents of the directory after the archive was saved as "promo.zip".
  Tree unpacked(const ZipBuilder& archive) {
    const auto error = save("promo.zip", archive.build());
    EXPECT_FALSE(error) << error->localizedDescription();
    return treeOf(stored("promo"));
  }
};

TEST_F(KivStorageServiceArchiveTest, UnpacksStoredAndDeflatedEntries) {
  const std::string text(100'000, 't');
  EXPECT_EQ(unpacked(ZipBuilder()
                         .add({.name = "index.html", .contents = "page", .method = 0})
                         .add({.name = "big.txt", .contents = text, .method = 8})),
            (Tree{{"index.html", "page"}, {"big.txt", text}}));
  EXPECT_FALSE(std::filesystem::exists(stored("promo.zip")));
}

TEST_F(KivStorageServiceArchiveTest, UnpacksDirectoriesListedOrNot) {
  EXPECT_EQ(unpacked(ZipBuilder()
                         .addFile("img/deep/a.png", "a")
                         .addFile("index.html", "page")
                         .addDirectory("empty/")
                         .addDirectory("img/")
                         .addFile("none", "")),
            (Tree{{"index.html", "page"},
                  {"img/", ""},
                  {"img/deep/", ""},
                  {"img/deep/a.png", "a"},
                  {"empty/", ""},
                  {"none", ""}}));
}

TEST_F(KivStorageServiceArchiveTest, DropsADotAtTheStartOfNames) {
  EXPECT_EQ(unpacked(ZipBuilder()
                         .addDirectory("./")
                         .addFile("./index.html", "page")
                         .addFile("././css/a.css", "a")),
            (Tree{{"index.html", "page"}, {"css/", ""}, {"css/a.css", "a"}}));
}

TEST_F(KivStorageServiceArchiveTest, StripsASingleFolderThatHoldsThePage) {
  const Tree expected{{"index.html", "page"}, {"css/", ""}, {"css/a.css", "a"}};
  EXPECT_EQ(unpacked(ZipBuilder()
                         .addDirectory("site/")
                         .addFile("site/index.html", "page")
                         .addFile("site/css/a.css", "a")),
            expected);
  EXPECT_EQ(
      unpacked(ZipBuilder().addFile("site/index.html", "page").addFile("site/css/a.css", "a")),
      expected);
}

TEST_F(KivStorageServiceArchiveTest, StripsOnlyOneFolder) {
  const auto error = save("promo.zip", ZipBuilder().addFile("a/b/index.html", "page").build());
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, static_cast<int>(Code::noEntryPage));
}

/// An archive of the folder "promo", as macOS creates it.
ZipBuilder macOSArchive() {
  const std::string attributes("\0\5\x16\7 what macOS knows of a file", 30);
  return ZipBuilder()
      .addDirectory("promo/")
      .addFile("promo/index.html", "page")
      .addFile("__MACOSX/promo/._index.html", attributes)
      .addFile("promo/.DS_Store", "view")
      .addFile("__MACOSX/promo/._.DS_Store", attributes)
      .addFile("__MACOSX/._promo", attributes);
}

TEST_F(KivStorageServiceArchiveTest, LeavesTheAttributesOfMacOSOut) {
  const Tree expected{{"index.html", "page"}, {".DS_Store", "view"}};
  EXPECT_EQ(unpacked(macOSArchive()), expected);
  EXPECT_EQ(unpacked(macOSArchive().addDirectory("__MACOSX/")), expected);
  EXPECT_EQ(unpacked(ZipBuilder()
                         .addFile("./__MACOSX/._index.html", "x")
                         .addFile("index.html", "page")
                         .addFile(".DS_Store", "view")
                         .addFile("__MACOSX/._.DS_Store", "x")),
            expected);
}

TEST_F(KivStorageServiceArchiveTest, OnlyAFolderOfThatNameAtTheTopIsLeftOut) {
  EXPECT_EQ(unpacked(ZipBuilder()
                         .addFile("index.html", "page")
                         .addFile("__macosx/b", "b")
                         .addFile("c/__MACOSX/c", "c")),
            (Tree{{"index.html", "page"},
                  {"__macosx/", ""},
                  {"__macosx/b", "b"},
                  {"c/", ""},
                  {"c/__MACOSX/", ""},
                  {"c/__MACOSX/c", "c"}}));
  EXPECT_EQ(unpacked(ZipBuilder().addFile("index.html", "page").addFile("__MACOSX", "a")),
            (Tree{{"index.html", "page"}, {"__MACOSX", "a"}}));
}

TEST_F(KivStorageServiceArchiveTest, UnpacksZip64) {
  ZipBuilder archive;
  archive.add({.name = "index.html", .contents = "page", .method = 8, .zip64 = true})
      .add({.name = "a.css", .contents = "a", .zip64 = true});
  archive.zip64End = true;
  EXPECT_EQ(unpacked(archive), (Tree{{"index.html", "page"}, {"a.css", "a"}}));
}

TEST_F(KivStorageServiceArchiveTest, UnpacksDataDescriptors) {
  ZipBuilder archive;
  archive.add({.name = "index.html", .contents = "page", .method = 8, .dataDescriptor = true})
      .add({.name = "a.css", .contents = "a", .method = 0, .dataDescriptor = true});
  EXPECT_EQ(unpacked(archive), (Tree{{"index.html", "page"}, {"a.css", "a"}}));
}

TEST_F(KivStorageServiceArchiveTest, ReadsUTF8Names) {
  constexpr std::uint16_t utf8 = 1 << 11;
  EXPECT_EQ(
      unpacked(ZipBuilder()
                   .addFile("index.html", "page")
                   .add({.name = "баннер/é.png", .contents = "a", .flags = utf8})
                   .add({.name = "日本.png", .contents = "b"})),
      (Tree{{"index.html", "page"}, {"баннер/", ""}, {"баннер/é.png", "a"}, {"日本.png", "b"}}));
}

TEST_F(KivStorageServiceArchiveTest, ConvertsNamesInCodePage437) {
  EXPECT_EQ(
      unpacked(
          ZipBuilder().addFile("index.html", "page").add({.name = "caf\x82.png", .contents = "a"})),
      (Tree{{"index.html", "page"}, {"café.png", "a"}}));
}

TEST_F(KivStorageServiceArchiveTest, TakesACommentThatLooksLikeAnEndRecord) {
  ZipBuilder archive;
  archive.addFile("index.html", "page");
  archive.comment = std::string("PK\x05\x06", 4) + std::string(40, 'c');
  EXPECT_EQ(unpacked(archive), (Tree{{"index.html", "page"}}));
}

TEST_F(KivStorageServiceArchiveTest, DoesNotUnpackArchivesInArchives) {
  const std::string inner = pageArchive("inner");
  EXPECT_EQ(unpacked(ZipBuilder().addFile("index.html", "page").addFile("inner.zip", inner)),
            (Tree{{"index.html", "page"}, {"inner.zip", inner}}));
}

TEST_F(KivStorageServiceArchiveTest, PermissionsOfTheArchiveDoNotCount) {
  unpacked(ZipBuilder().add({.name = "index.html", .contents = "page", .mode = 0104777}));
  const auto mode = std::filesystem::status(stored("promo/index.html")).permissions();
  EXPECT_EQ(mode & (std::filesystem::perms::set_uid | std::filesystem::perms::owner_exec),
            std::filesystem::perms::none);
}

TEST_F(KivStorageServiceArchiveTest, NothingOfTheOldVersionStays) {
  EXPECT_FALSE(save("promo.zip", pageArchive("one")));
  EXPECT_EQ(treeOf(stored("")), pageTree("one"));
  EXPECT_FALSE(save("promo.zip", pageArchive("two")));
  EXPECT_EQ(treeOf(stored("")), pageTree("two"));
}

TEST_F(KivStorageServiceArchiveTest, TheStemIsTheNameWithoutTheEndingOnly) {
  EXPECT_FALSE(save("a.b.zip", pageArchive("one")));
  EXPECT_EQ(contents("a.b/index.html"), "one");
}

TEST_F(KivStorageServiceArchiveTest, AnEndingInUpperCaseIsAPlainFile) {
  EXPECT_FALSE(save("PROMO.ZIP", "bytes"));
  EXPECT_EQ(contents("PROMO.ZIP"), "bytes");
}

TEST_F(KivStorageServiceArchiveTest, RefusesAnArchiveWithoutPageAtTheTop) {
  const std::vector<ZipBuilder> archives{
      ZipBuilder(),
      ZipBuilder().addFile("page.html", "page"),
      ZipBuilder().addFile("INDEX.HTML", "page"),
      ZipBuilder().addDirectory("index.html/"),
      ZipBuilder().addFile("__MACOSX/index.html", "page"),
      ZipBuilder().addFile("site/index.html", "page").addFile("readme.txt", "r"),
      ZipBuilder().addFile("a/index.html", "page").addDirectory("b/"),
  };
  for (const ZipBuilder& archive : archives) {
    const auto error = save("promo.zip", archive.build());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, static_cast<int>(Code::noEntryPage)) << error->localizedDescription();
    EXPECT_EQ(error->localizedDescription(),
              "The archive \"promo.zip\" has no \"index.html\" at its top.");
  }
  EXPECT_EQ(tree(), Tree{});
}

// --- Rejected archives ---------------------------------------------------------------------------

struct HostileCase {
  const char* title;
  std::string archive;
  const char* entry;  ///< the entry in the message
  const char* rule;   ///< the rule in the message
};

/// A valid archive with an additional entry.
std::string with(ZipEntry entry) {
  return ZipBuilder().addFile("index.html", "page").add(std::move(entry)).build();
}

std::string with(const std::string& name) {
  return with(ZipEntry{.name = name, .contents = "x"});
}

std::string withBoth(const std::string& one, const std::string& other) {
  return ZipBuilder().addFile("index.html", "page").addFile(one, "1").addFile(other, "2").build();
}

std::vector<HostileCase> hostileNames() {
  const auto deep = [](int levels) {
    std::string name;
    for (int i = 1; i < levels; ++i)
      name += "d/";
    return name + "f";
  };
  std::string longPath;
  for (int i = 0; i < 9; ++i)
    longPath += std::string(250, 'p') + "/";
  return {
      {"Absolute", with("/etc/passwd"), "/etc/passwd", "absolute path"},
      {"Up", with("../escaped"), "../escaped", "leads out"},
      {"UpLater", with("a/../../escaped"), "a/../../escaped", "leads out"},
      {"UpAtTheEnd", with("a/.."), "a/..", "leads out"},
      {"UpAfterADot", with("./../escaped"), "./../escaped", "leads out"},
      {"AbsoluteAfterADot", with(".//etc/passwd"), ".//etc/passwd", "empty part"},
      {"UpDirectory", with(ZipEntry{.name = "../", .mode = 0040755}), "../", "leads out"},
      {"Drive", with("C:/windows"), "C:/windows", "drive"},
      {"DriveRelative", with("c:x"), "c:x", "drive"},
      {"Backslash", with("..\\escaped"), "..\\escaped", "backslash"},
      {"BackslashInside", with("css\\a.css"), "css\\a.css", "backslash"},
      {"NetworkPath", with("\\\\host\\share"), "\\\\host\\share", "backslash"},
      {"Empty", with(""), "", "no name"},
      {"EmptyPart", with("a//b"), "a//b", "empty part"},
      {"DotInside", with("a/./b"), "a/./b", "\".\""},
      {"Slash", with(ZipEntry{.name = "/", .mode = 0040755}), "/", "absolute path"},
      {"NUL", with(std::string("a\0b", 3)), "a\\x00b", "NUL"},
      {"NULBeforeUp", with(std::string("a\0/../b", 7)), "a\\x00/../b", "NUL"},
      {"TooLongName", with(std::string(256, 'n')), "nnnn", "longer than 255 bytes"},
      {"TooLongPath", with(longPath + "f"), "pppp", "longer than 2048 bytes"},
      {"TooDeep", with(deep(33)), "d/d/d", "deeper than 32 levels"},
      {"BrokenUTF8", with(ZipEntry{.name = "\xff.png", .flags = 1 << 11}), "\\xff.png", "UTF-8"},
  };
}

std::vector<HostileCase> hostileTwins() {
  return {
      {"Twice", withBoth("a", "a"), "a", "listed twice"},
      {"TwiceByDot", withBoth("a", "./a"), "./a", "listed twice"},
      {"TwiceByCase", withBoth("A.png", "a.png"), "a.png", "spelling"},
      {"TwiceByCaseOfTheFolder", withBoth("Css/a", "css/b"), "css/b", "spelling"},
      {"TwiceByCyrillicCase", withBoth("БАННЕР", "баннер"), "баннер", "spelling"},
      {"TwiceByNormalisation", withBoth("caf\u00e9", "cafe\u0301"), "caf", "spelling"},
      {"TwiceByBoth", withBoth("CAF\u00c9", "cafe\u0301"), "caf", "spelling"},
      {"LinkAmongWhatIsLeftOut", with({.name = "__MACOSX/l", .contents = "/etc", .mode = 0120777}),
       "__MACOSX/l", "symbolic link"},
      {"UpOutOfWhatIsLeftOut", with("__MACOSX/../../a"), "__MACOSX/../../a", "\"..\""},
      {"TwiceByTheKelvinSign", withBoth("\u212a.png", "k.png"), "k.png", "spelling"},
      {"TwiceByTheAngstromSign", withBoth("\u212b.png", "\u00c5.png"), ".png", "spelling"},
      {"TwiceByHangul", withBoth("\ud55c.png", "\u1112\u1161\u11ab.png"), ".png", "spelling"},
      {"PageTwiceByCase", with("INDEX.html"), "INDEX.html", "spelling"},
      {"FileThenDirectory", withBoth("a", "a/b"), "a/b", "both a file and a directory"},
      {"DirectoryThenFile", withBoth("a/b", "a"), "a", "both a file and a directory"},
      {"FileAndListedDirectory", withBoth("a", "a/"), "a/", "is a directory with contents"},
      {"FileAndEmptyDirectory",
       ZipBuilder().addFile("index.html", "p").addFile("a", "1").addDirectory("a/").build(), "a/",
       "both a file and a directory"},
  };
}

std::vector<HostileCase> hostileKinds() {
  return {
      {"Link", with(ZipEntry{.name = "link", .contents = "/etc/passwd", .mode = 0120777}), "link",
       "symbolic link"},
      {"LinkByAnotherSystem",
       with(ZipEntry{.name = "link", .contents = "x", .madeBy = 19 << 8, .mode = 0120777}), "link",
       "symbolic link"},
      {"Pipe", with(ZipEntry{.name = "pipe", .mode = 0010644}), "pipe", "special file"},
      {"Device", with(ZipEntry{.name = "device", .mode = 0020644}), "device", "special file"},
      {"Block", with(ZipEntry{.name = "block", .mode = 0060644}), "block", "special file"},
      {"Socket", with(ZipEntry{.name = "socket", .mode = 0140644}), "socket", "special file"},
      {"DirectoryAsFile", with(ZipEntry{.name = "d", .mode = 0040755}), "d", "file's name"},
      {"DirectoryWithContents", with(ZipEntry{.name = "d/", .contents = "x", .mode = 0040755}),
       "d/", "directory with contents"},
      {"Encrypted", with(ZipEntry{.name = "secret", .contents = "x", .flags = 1}), "secret",
       "encrypted"},
      {"StronglyEncrypted", with(ZipEntry{.name = "secret", .contents = "x", .flags = 1 << 6}),
       "secret", "encrypted"},
      {"UnknownMethod", with(ZipEntry{.name = "odd", .contents = "x", .method = 99}), "odd",
       "unknown method 99"},
      {"BzippedMethod", with(ZipEntry{.name = "odd", .contents = "x", .method = 12}), "odd",
       "unknown method 12"},
  };
}

std::vector<HostileCase> hostileBytes() {
  const std::string text(1000, 't');
  const std::string good = pageArchive("one");
  std::string broken = ZipBuilder::deflated(text);
  broken[0] = static_cast<char>(0x07);  // the reserved block type
  ZipBuilder overlapping;
  overlapping.addFile("index.html", "page")
      .add({.name = "a", .contents = "x", .packedSize = 40})
      .addFile("b", text);
  ZipBuilder shared;
  shared.addFile("index.html", "page")
      .add({.name = "index.html2",
            .contents = "page",
            .localName = "index.html2",
            .headerOffset = 0});
  return {
      {"WrongChecksum", with(ZipEntry{.name = "a", .contents = text, .method = 8, .crc = 1}), "a",
       "cannot be decoded"},
      {"WrongChecksumStored", with(ZipEntry{.name = "a", .contents = text, .crc = 1}), "a",
       "cannot be decoded"},
      {"SizeTooSmall", with(ZipEntry{.name = "a", .contents = text, .method = 8, .size = 999}), "a",
       "longer than the archive says"},
      {"SizeZero", with(ZipEntry{.name = "a", .contents = text, .method = 8, .size = 0}), "a",
       "longer than the archive says"},
      {"SizeTooLarge", with(ZipEntry{.name = "a", .contents = text, .method = 8, .size = 1001}),
       "a", "shorter than the archive says"},
      {"BrokenDeflate",
       with(ZipEntry{.name = "a", .contents = text, .method = 8, .packed = broken}), "a",
       "cannot be decoded"},
      {"CutDeflate",
       with(ZipEntry{.name = "a",
                     .contents = text,
                     .method = 8,
                     .packed = ZipBuilder::deflated(text).substr(0, 5)}),
       "a", ""},
      {"OtherNameBeforeTheContents", with(ZipEntry{.name = "a", .contents = "x", .localName = "b"}),
       "a", "another name"},
      {"Overlap", overlapping.build(), "b", "overlaps"},
      {"SharedContents", shared.build(), "index.html2", "another name"},
      {"HeaderOutside", with(ZipEntry{.name = "a", .contents = "x", .headerOffset = 1'000'000}),
       "a", "within the archive"},
      {"HeaderInTheMiddle", with(ZipEntry{.name = "a", .contents = "x", .headerOffset = 1}), "a",
       "no header"},
      {"PackedSizeBeyondTheEnd",
       with(ZipEntry{.name = "a", .contents = "x", .packedSize = 100'000}), "a",
       "within the archive"},
      {"NoArchive", "no archive at all", "", "is no zip archive"},
      {"Empty", "", "", "is no zip archive"},
      {"EndCutOff", good.substr(0, good.size() - 1), "", "is no zip archive"},
      {"BeginningCutOff", good.substr(10), "", "contradicts itself"},
      {"BytesBehind", good + "x", "", "is no zip archive"},
      {"BytesBefore", "x" + good, "", "contradicts itself"},
      {"TwoArchives", good + pageArchive("two"), "", "contradicts itself"},
  };
}

class HostileArchive : public StorageServiceFixture,
                       public testing::WithParamInterface<HostileCase> {};

TEST_P(HostileArchive, IsRefusedWholeAndLeavesNoTrace) {
  const HostileCase& hostile = GetParam();
  const auto check = [&](const std::optional<Error>& error) {
    ASSERT_TRUE(error) << "the archive was taken";
    EXPECT_EQ(error->domain, KivStorageServiceErrorDomain);
    EXPECT_EQ(error->code, static_cast<int>(Code::invalidArchive));
    const std::string message = error->localizedDescription();
    EXPECT_NE(message.find("The archive \"promo.zip\" "), message.npos) << message;
    EXPECT_NE(message.find(hostile.entry), message.npos) << message;
    EXPECT_NE(message.find(hostile.rule), message.npos) << message;
  };
  check(save("promo.zip", hostile.archive));
  EXPECT_EQ(tree(), Tree{});
  ASSERT_FALSE(save("promo.zip", pageArchive("old")));
  check(save("promo.zip", hostile.archive));
  EXPECT_EQ(treeOf(stored("")), pageTree("old"));
  for (const auto& [path, bytes] : temporaries()) {
    EXPECT_EQ(path.find('/') + 1 == path.size() || path.ends_with(".lock"), true) << path;
  }
}

constexpr auto titleOf = [](const auto& test) { return test.param.title; };
INSTANTIATE_TEST_SUITE_P(Names, HostileArchive, testing::ValuesIn(hostileNames()), titleOf);
INSTANTIATE_TEST_SUITE_P(Twins, HostileArchive, testing::ValuesIn(hostileTwins()), titleOf);
INSTANTIATE_TEST_SUITE_P(Kinds, HostileArchive, testing::ValuesIn(hostileKinds()), titleOf);
INSTANTIATE_TEST_SUITE_P(Bytes, HostileArchive, testing::ValuesIn(hostileBytes()), titleOf);

TEST_F(KivStorageServiceArchiveTest, NoBeginningOfAnArchiveIsTaken) {
  const std::string archive = pageArchive("one");
  for (std::size_t size = 0; size < archive.size(); ++size) {
    EXPECT_TRUE(save("promo.zip", archive.substr(0, size))) << size;
  }
  EXPECT_EQ(tree(), Tree{});
}

TEST_F(KivStorageServiceArchiveTest, AnArchiveWithOneByteChangedIsRefusedOrUnpackedWhole) {
  const std::string archive = pageArchive("one");
  for (std::size_t at = 0; at < archive.size(); ++at) {
    for (const int change : {0x01, 0x80, 0xFF}) {
      std::string changed = archive;
      changed[at] = static_cast<char>(changed[at] ^ change);
      std::filesystem::remove_all(stored("promo"));
      if (save("promo.zip", changed)) {
        EXPECT_FALSE(std::filesystem::exists(stored("promo"))) << at;
      } else {
        EXPECT_TRUE(contents("promo/index.html")) << at;
      }
    }
  }
}

// --- Limits --------------------------------------------------------------------------------------

class ArchiveLimitTest : public KivStorageServiceArchiveTest {
 protected:
  void expectRefusal(const ZipBuilder& archive, const std::string& rule) {
    const auto error = save("promo.zip", archive.build());
    ASSERT_TRUE(error) << "taken although " << rule;
    const std::string message = error->localizedDescription();
    EXPECT_NE(message.find(rule), message.npos) << message;
    EXPECT_EQ(tree(), Tree{});
  }
};

TEST_F(ArchiveLimitTest, DefaultsAreTheDocumentedOnes) {
  const ArchiveLimits limits = KivStorageService::archiveLimits();
  EXPECT_EQ(limits.entries, 10'000U);
  EXPECT_EQ(limits.levels, 32U);
  EXPECT_EQ(limits.nameBytes, 255U);
  EXPECT_EQ(limits.fileBytes, 512U * 1024 * 1024);
  EXPECT_EQ(limits.totalBytes, 1024U * 1024 * 1024);
  EXPECT_EQ(limits.ratio, 200U);
  EXPECT_EQ(limits.ratioFreeBytes, 10U * 1024 * 1024);
}

TEST_F(ArchiveLimitTest, CountsEntries) {
  ArchiveLimits limits;
  limits.entries = 3;
  KivStorageService::setArchiveLimits(limits);
  ZipBuilder archive;
  archive.addFile("index.html", "page").addFile("a", "a").addDirectory("d/");
  archive.addFile("b", "b");
  expectRefusal(archive, "more than 3 entries");
  EXPECT_EQ(unpacked(ZipBuilder().addFile("index.html", "page").addFile("a", "a").addFile("b", "")),
            (Tree{{"index.html", "page"}, {"a", "a"}, {"b", ""}}));
}

TEST_F(ArchiveLimitTest, RefusesAMillionEmptyEntriesByTheirCount) {
  ZipBuilder archive;
  archive.addFile("index.html", "page");
  archive.zip64End = true;
  archive.entryCount = 1'000'000;
  expectRefusal(archive, "more than 10000 entries");
  archive.entryCount = UINT64_MAX;
  expectRefusal(archive, "more than 10000 entries");
}

TEST_F(ArchiveLimitTest, ACountThatLiesIsRefused) {
  for (const std::uint64_t count : {0U, 1U, 3U}) {
    ZipBuilder archive;
    archive.addFile("index.html", "page").addFile("a", "a");
    archive.entryCount = count;
    expectRefusal(archive, "contradicts itself");
  }
}

TEST_F(ArchiveLimitTest, APlaceOfTheListThatLiesIsRefused) {
  for (const std::uint64_t offset : {std::uint64_t{0}, std::uint64_t{40}, std::uint64_t{1} << 40}) {
    ZipBuilder archive;
    archive.addFile("index.html", "page");
    archive.zip64End = true;
    archive.listOffset = offset;
    expectRefusal(archive, "contradicts itself");
  }
}

TEST_F(ArchiveLimitTest, CountsDirectoriesThatAreNotListed) {
  ArchiveLimits limits;
  limits.items = 5;
  KivStorageService::setArchiveLimits(limits);
  expectRefusal(ZipBuilder().addFile("index.html", "page").addFile("a/b/c/d/e", "x"),
                "more than 5 files and directories");
}

TEST_F(ArchiveLimitTest, WhatIsLeftOutCountsAsAnEntryAlone) {
  ArchiveLimits limits;
  limits.entries = 3;
  limits.items = 1;
  limits.totalBytes = 1000;
  KivStorageService::setArchiveLimits(limits);
  const std::string contents(1000, 'p');
  ZipBuilder archive;
  archive.addFile("index.html", contents).addFile("__MACOSX/a", contents);
  archive.addFile("__MACOSX/b/c", contents);
  ZipBuilder larger = archive;
  expectRefusal(larger.addFile("__MACOSX/d", "d"), "more than 3 entries");
  EXPECT_EQ(unpacked(archive).size(), 1U);
}

TEST_F(ArchiveLimitTest, TakesExactlyThirtyTwoLevels) {
  std::string name;
  for (int i = 1; i < 32; ++i)
    name += "d/";
  EXPECT_EQ(
      unpacked(ZipBuilder().addFile("index.html", "page").addFile(name + "f", "x")).at(name + "f"),
      "x");
}

TEST_F(ArchiveLimitTest, LimitsTheBytesOfOneFile) {
  ArchiveLimits limits;
  limits.fileBytes = 1000;
  KivStorageService::setArchiveLimits(limits);
  expectRefusal(ZipBuilder().addFile("index.html", std::string(1001, 'p')),
                "larger than 1000 bytes");
  EXPECT_EQ(unpacked(ZipBuilder().addFile("index.html", std::string(1000, 'p'))).size(), 1U);
}

TEST_F(ArchiveLimitTest, RefusesAFileThatClaimsTooMuch) {
  ZipBuilder archive;
  archive.add({.name = "index.html", .contents = "p", .zip64 = true, .size = UINT64_MAX});
  expectRefusal(archive, "larger than 536870912 bytes");
}

TEST_F(ArchiveLimitTest, LimitsTheBytesOfAllFiles) {
  ArchiveLimits limits;
  limits.totalBytes = 1000;
  KivStorageService::setArchiveLimits(limits);
  const std::string half(500, 'p');
  expectRefusal(ZipBuilder().addFile("index.html", half).addFile("a", half + "p"),
                "more than 1000 bytes");
  EXPECT_EQ(unpacked(ZipBuilder().addFile("index.html", half).addFile("a", half)).size(), 2U);
}

TEST_F(ArchiveLimitTest, LimitsTheRatioOfOneFile) {
  ArchiveLimits limits;
  limits.ratioFreeBytes = 100'000;
  KivStorageService::setArchiveLimits(limits);
  const std::string blank(100'001, 'p');
  ZipEntry incompressible{.name = "noise", .contents = std::string(60'000, 'n')};
  expectRefusal(ZipBuilder().addFile("index.html", blank).add(incompressible), "200 times");
  EXPECT_EQ(unpacked(ZipBuilder().addFile("index.html", blank.substr(1))).size(), 1U);
}

TEST_F(ArchiveLimitTest, LimitsTheRatioOfTheWholeArchive) {
  ArchiveLimits limits;
  limits.ratioFreeBytes = 100'000;
  KivStorageService::setArchiveLimits(limits);
  const std::string blank(90'000, 'p');
  expectRefusal(ZipBuilder().addFile("index.html", blank).addFile("a", blank).addFile("b", blank),
                "200 times");
}

TEST_F(ArchiveLimitTest, RefusesABombByTheDefaultRatio) {
  expectRefusal(ZipBuilder().addFile("index.html", std::string((10 << 20) + 1, '\0')), "200 times");
}

}  // namespace
}  // namespace kiv::test
