// Saves in a separate process until it is killed or told to stop. Run by StorageProcessesTest.
//
//   StorageWriter ROOT files|archives|hold VERSION
//
// "files" and "archives" save the same name repeatedly, with contents from WholeVersions.h; "hold"
// saves once, writes a temporary file and waits. A line on standard output reports the first save;
// the end of standard input stops the process.

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivPlatform/KivStorageService/store/AtomicFile.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"
#include "Tests/KivPlatform/KivStorageService/WholeVersions.h"

namespace {

bool saveOnce(const std::string& sort, const std::string& version) {
  using namespace kiv::test;
  const bool isArchive = sort == "archives";
  return KivStorageService::saveData_forFileName_atRelativePath_error(
      kiv::Data(isArchive ? wholeArchive(version) : wholeFile(version)),
      isArchive ? "promo.zip" : "a.bin", "KivResource/Resources");
}

void sayReady() {
  std::puts("ready");
  std::fflush(stdout);
}

void awaitEndOfInput() {
  while (std::getchar() != EOF) {
  }
}

int hold(const std::string& version) {
  if (!saveOnce("files", version)) return 1;
  const auto root = kiv::storage::StorageRoot::current();
  auto unfinished = kiv::storage::AtomicFile::create(*root, kiv::storage::Access::shared);
  if (!unfinished || !unfinished->write("half")) return 1;
  sayReady();
  awaitEndOfInput();
  const std::string path =
      KivStorageService::filePathForFileName_atRelativePath("held", "KivResource/Resources");
  return unfinished->commit(path) ? 0 : 1;
}

int saveOverAndOver(const std::string& sort, const std::string& version) {
  std::atomic<bool> isStopped{false};
  std::thread input([&] {
    awaitEndOfInput();
    isStopped = true;
  });
  bool isSaved = saveOnce(sort, version + "0");
  sayReady();
  for (int i = 1; isSaved && !isStopped; ++i)
    isSaved = saveOnce(sort, version + std::to_string(i));
  input.join();
  return isSaved ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  KivStorageService::setRootPath(argv[1]);
  const std::string sort = argv[2];
  const int result = sort == "hold" ? hold(argv[3]) : saveOverAndOver(sort, argv[3]);
  KivStorageService::setRootPath("");
  return result;
}
