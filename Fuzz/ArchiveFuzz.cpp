// Unpacks any bytes as an archive: within the rules, or refused with an error.
//
// A fuzzer can hardly make valid archives, because of the checksums. So an input that begins with
// 255 describes an archive: for each entry its flags, the length of its name, the name, and the
// length of its contents, which repeat the first byte of the name.

#include <algorithm>
#include <cstddef>
#include <string>

#include "Fuzz/MemoryFiles.h"
#include "Fuzz/Require.h"
#include "KivPlatform/KivStorageService/archive/ArchiveUnpacker.h"
#include "Tests/Support/ZipBuilder.h"

namespace {

/// Small, so that a fuzzer's inputs reach the limits.
kiv::ArchiveLimits limits() {
  kiv::ArchiveLimits small;
  small.entries = 40;
  small.items = 60;
  small.levels = 5;
  small.nameBytes = 60;
  small.pathBytes = 200;
  small.fileBytes = 100'000;
  small.totalBytes = 200'000;
  small.ratio = 20;
  small.ratioFreeBytes = 2'000;
  return small;
}

class Recipe {
 public:
  explicit Recipe(std::string_view bytes) : rest_(bytes) {}

  std::string archive() {
    kiv::test::ZipBuilder builder;
    while (!rest_.empty())
      builder.add(entry());
    return builder.build();
  }

 private:
  kiv::test::ZipEntry entry() {
    const unsigned traits = number();
    kiv::test::ZipEntry entry;
    const std::size_t wanted = number();  // before the rest is measured, which it shortens
    const std::size_t length = std::min(wanted, rest_.size());
    entry.name = rest_.substr(0, length);
    if ((traits & 1) != 0) entry.name = "index.html";
    rest_.remove_prefix(length);
    entry.contents.assign(std::size_t{number()} * 16, entry.name.empty() ? 'x' : entry.name[0]);
    if ((traits & 2) != 0) entry.method = 8;
    if ((traits & 4) != 0) entry.mode = 0120777;
    if ((traits & 8) != 0) entry.name += '/';
    entry.dataDescriptor = (traits & 16) != 0;
    entry.zip64 = (traits & 32) != 0;
    if ((traits & 64) != 0) entry.flags = 1 << 11;  // the name is said to be UTF-8
    if ((traits & 128) != 0) entry.size = entry.contents.size() / 2;
    return entry;
  }

  std::uint8_t number() {
    if (rest_.empty()) return 0;
    const auto first = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return first;
  }

  std::string_view rest_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using kiv::fuzz::require;
  kiv::fuzz::MemoryFiles files("/unpacked");
  const std::string_view text = kiv::fuzz::textOf(bytes, size);
  const std::string archive =
      text.starts_with('\xff') ? Recipe(text.substr(1)).archive() : std::string(text);
  const kiv::Status status =
      kiv::storage::unpackArchive(kiv::Data(archive), "a.zip", "/unpacked", limits());
  require(status || !status.error().localizedDescription().empty(), "an error says something");
  std::uint64_t total = 0;
  for (const auto& [path, fileSize] : files.files()) {
    require(fileSize <= limits().fileBytes, "no file is larger than allowed");
    total += fileSize;
  }
  require(total <= limits().totalBytes, "all files together are not larger than allowed");
  require(!status || files.files().contains("/unpacked/index.html"), "there is a page");
  return 0;
}
