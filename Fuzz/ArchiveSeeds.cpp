// Writes seed archives to the directory given on the command line: valid ones, and one for each
// reason for refusal that mutation is unlikely to find.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "Tests/Support/ZipBuilder.h"

namespace {

using kiv::test::ZipBuilder;
using kiv::test::ZipEntry;

class Folder {
 public:
  explicit Folder(std::string path) : path_(std::move(path)) {
    std::filesystem::create_directories(path_);
  }
  void add(const std::string& name, const ZipBuilder& archive) {
    std::ofstream file(path_ + "/" + name, std::ios::binary);
    file << archive.build();
    isWritten_ = isWritten_ && file.good();
  }
  [[nodiscard]] bool isWritten() const noexcept { return isWritten_; }

 private:
  std::string path_;
  bool isWritten_ = true;
};

ZipBuilder page() {
  return ZipBuilder().addFile("index.html", "<html>page</html>");
}

void addSound(Folder& folder) {
  folder.add("page", page());
  folder.add("folders", page().addDirectory("css/").addFile("css/a.css", std::string(3000, 'a')));
  folder.add("inAFolder", ZipBuilder().addFile("site/index.html", "x").addFile("site/a/b.js", "y"));
  folder.add("stored", ZipBuilder().add({.name = "index.html", .contents = "stored"}));
  folder.add("descriptor",
             ZipBuilder().add(
                 {.name = "index.html", .contents = "x", .method = 8, .dataDescriptor = true}));
  folder.add("zip64", page().add({.name = "a", .contents = "x", .zip64 = true}));
  ZipBuilder commented = page();
  commented.comment = "a comment";
  folder.add("comment", commented);
}

void addRefused(Folder& folder) {
  int number = 0;
  for (const char* const name : {"../a", "/a", "a/../../b", "C:\\a", "a\\b", "a//b", "CON", "a."}) {
    folder.add("name" + std::to_string(++number), page().add({.name = name}));
  }
  folder.add("link", page().add({.name = "l", .contents = "/etc", .mode = 0120777}));
  folder.add("device", page().add({.name = "d", .mode = 0020666}));
  folder.add("twice", page().addFile("index.html", "again"));
  folder.add("foldedTwice", page().addFile("INDEX.HTML", "again"));
  folder.add("fileAndFolder", page().addFile("a", "x").addFile("a/b", "y"));
  folder.add("encrypted", page().add({.name = "e", .contents = "x", .flags = 1}));
  folder.add("method", page().add({.name = "m", .contents = "x", .method = 12}));
  folder.add("bomb", page().addFile("zeros", std::string(90'000, '\0')));
  folder.add("sizeIsALie", page().add({.name = "s", .contents = "abc", .size = 2}));
  folder.add("checksumIsALie", page().add({.name = "c", .contents = "abc", .crc = 1}));
  folder.add("otherLocalName", page().add({.name = "n", .contents = "x", .localName = "o"}));
  folder.add("noPage", ZipBuilder().addFile("other.html", "x"));
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return EXIT_FAILURE;
  Folder folder(arguments[1]);
  addSound(folder);
  addRefused(folder);
  return folder.isWritten() ? EXIT_SUCCESS : EXIT_FAILURE;
}
