// Reads any text as the record of a partial body, as if the file were damaged or hostile. "@BOOT@"
// stands for the boot ID and "@URL@" for the digest of the URL, so that a record can be valid. The
// request for the rest must then contain no byte of the record that is not allowed in a header, and
// no range that the part does not have.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "Fuzz/Require.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"
#include "KivPlatform/KivRESTService/partial/BodySink.h"
#include "KivPlatform/KivRESTService/partial/PartialBody.h"
#include "KivPlatform/KivRESTService/partial/SpoolDirectory.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

namespace fs = std::filesystem;
using kiv::PartialRecord;
using kiv::fuzz::require;

constexpr std::string_view url = "http://a.test/x";
constexpr std::int64_t partLength = 100;

void replaceAll(std::string& text, std::string_view token, std::string_view value) {
  for (auto at = text.find(token); at != text.npos; at = text.find(token, at + value.size()))
    text.replace(at, token.size(), value);
}

bool mayStandInHeader(std::string_view value) {
  return std::all_of(value.begin(), value.end(), [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 0x20 && byte != 0x7F;
  });
}

void checkVersion(const kiv::BodyVersion& version) {
  require(!version.validator().empty(), "a part is continued with a validator");
  require(!version.entityTag.starts_with("W/"), "a weak tag says nothing about bytes");
  require(mayStandInHeader(version.entityTag) && mayStandInHeader(version.lastModified),
          "a validator has no character that ends a header");
}

bool areEqual(const PartialRecord& a, const PartialRecord& b) {
  return a.url.text() == b.url.text() && a.finalURL.text() == b.finalURL.text() &&
         a.version.entityTag == b.version.entityTag &&
         a.version.lastModified == b.version.lastModified && a.length == b.length &&
         a.date == b.date && a.rangeFailed == b.rangeFailed;
}

void checkText(const std::string& text) {
  const auto record = PartialRecord::fromText(text);
  if (!record) return;
  checkVersion(record->version);
  require(record->length.value_or(0) >= 0 && record->date >= 0, "lengths and dates are positive");
  const auto again = PartialRecord::fromText(record->text());
  require(again && areEqual(*record, *again), "a record is read as it was written");
}

/// A temporary directory, removed at the end of the program.
class Spool {
 public:
  Spool() {
    path_ = (fs::temp_directory_path() / "KivResourceFuzz-XXXXXX").string();
    require(mkdtemp(path_.data()) != nullptr, "there is a directory");
    settings.spoolDirectory = path_;
    settings.longestPartialAge = std::chrono::hours(24 * 365 * 200);
    // The name that a client gives the file.
    kiv::SpoolDirectory spool(settings);
    const auto body = spool.create(*kiv::URL::fromString(url));
    require(body && !fs::is_empty(path_), "a body has a place");
    stem_ = fs::path(fs::directory_iterator(path_)->path()).replace_extension().string();
  }
  ~Spool() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;

  void put(const std::string& record) const {
    std::ofstream(stem_ + ".json", std::ios::binary) << record;
    std::ofstream(stem_ + ".part", std::ios::binary) << std::string(partLength, 'x');
  }
  [[nodiscard]] bool isThere(const std::string& extension) const {
    return fs::exists(stem_ + extension);
  }

  kiv::TransferSettings settings;

 private:
  std::string path_;
  std::string stem_;
};

void checkRange(const kiv::RequestedRange& range, const PartialRecord& record) {
  require(range.first > 0 && range.first <= partLength, "a range begins where the part ends");
  require(!range.length || range.first < *range.length, "and before the end of the file");
  require(!record.rangeFailed, "not after a request for the rest that failed");
  checkVersion(range.version);
}

void checkFile(const std::string& text) {
  static const Spool spool;
  spool.put(text);
  kiv::SpoolDirectory directory(spool.settings);
  directory.sweep();
  const auto record = PartialRecord::fromText(text);
  require(spool.isThere(".part") == record.has_value(), "what is not believed goes");
  const auto buffers = std::make_shared<kiv::BodyBuffers>(1000);
  kiv::BodySink sink(*kiv::URL::fromString(url), directory, *buffers, 1000);
  const auto range = sink.range();
  if (!range) return sink.discard();
  require(record && record->url == std::string(url), "a part is that of the URL");
  checkRange(*range, *record);
  sink.discard();
  require(!spool.isThere(".part") && !spool.isThere(".json"), "what is discarded goes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  std::string text(kiv::fuzz::textOf(bytes, size));
  replaceAll(text, "@BOOT@", kiv::system::bootID());
  replaceAll(text, "@URL@", kiv::URLDigest(std::string(url)).text());
  checkText(text);
  checkFile(text);
  return 0;
}
