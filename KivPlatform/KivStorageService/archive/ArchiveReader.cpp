#include "KivPlatform/KivStorageService/archive/ArchiveReader.h"

#include <mutex>
#include <utility>
#include <vector>

#include <zip.h>

#include "KivPlatform/KivStorageService/archive/ArchiveSource.h"

namespace kiv::storage {

namespace {

constexpr std::size_t pieceSize = 64 * 1024;

std::string takeReason(zip_error_t& error) {
  std::string reason = zip_error_strerror(&error);
  zip_error_fini(&error);
  return reason;
}

std::string nameWith(zip_t* archive, std::uint64_t index, zip_flags_t encoding) {
  const char* const name = zip_get_name(archive, index, encoding);
  return name ? name : "";
}

/// The decoder turns the entries' times into the C library's local time as it opens an archive, and
/// not every C library lets two threads do that at once.
std::mutex& openingMutex() {
  static auto& mutex = *new std::mutex;
  return mutex;
}

struct FileCloser {
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};

}  // namespace

struct ArchiveReader::Handle {
  explicit Handle(zip_t* opened) : archive(opened) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { zip_discard(archive); }

  zip_t* archive;
};

std::unique_ptr<ArchiveReader> ArchiveReader::open(const Data& data, std::string& reason) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* const source = makeArchiveSource(data, &error);
  if (!source) {
    reason = takeReason(error);
    return nullptr;
  }
  const std::lock_guard guard(openingMutex());
  zip_t* const archive = zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &error);
  if (!archive) {
    zip_source_free(source);
    reason = takeReason(error);
    return nullptr;
  }
  zip_error_fini(&error);
  return std::unique_ptr<ArchiveReader>(new ArchiveReader(std::make_unique<Handle>(archive)));
}

ArchiveReader::ArchiveReader(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}

ArchiveReader::~ArchiveReader() = default;

std::uint64_t ArchiveReader::entryCount() const {
  const zip_int64_t count = zip_get_num_entries(handle_->archive, 0);
  return count > 0 ? static_cast<std::uint64_t>(count) : 0;
}

std::string ArchiveReader::name(std::uint64_t index) const {
  return nameWith(handle_->archive, index, ZIP_FL_ENC_GUESS);
}

std::string ArchiveReader::rawName(std::uint64_t index) const {
  return nameWith(handle_->archive, index, ZIP_FL_ENC_RAW);
}

ArchiveReader::Outcome ArchiveReader::read(std::uint64_t index, const Sink& sink,
                                           std::string& reason) const {
  const std::unique_ptr<zip_file_t, FileCloser> file(zip_fopen_index(handle_->archive, index, 0));
  if (!file) {
    reason = zip_error_strerror(zip_get_error(handle_->archive));
    return Outcome::broken;
  }
  std::vector<char> piece(pieceSize);
  // Read on until nothing comes: a wrong checksum shows only there.
  while (true) {
    const zip_int64_t count = zip_fread(file.get(), piece.data(), piece.size());
    if (count == 0) return Outcome::complete;
    if (count < 0) {
      reason = zip_error_strerror(zip_file_get_error(file.get()));
      return Outcome::broken;
    }
    if (!sink(std::string_view(piece.data(), static_cast<std::size_t>(count)))) {
      return Outcome::stopped;
    }
  }
}

}  // namespace kiv::storage
