// libzip reads the archive through a custom source, which copies from kiv::Data. libzip only
// decodes; ArchiveUnpacker decides what may be unpacked.

#include "KivPlatform/KivStorageService/archive/ArchiveReader.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include <zip.h>

#include "KivPlatform/Foundation/Mutex.h"

namespace kiv::storage {

namespace {

constexpr std::size_t pieceSize = 64 * 1024;

/// The libzip source: the archive as a seekable file.
struct Source {
  explicit Source(const Data& data) : archive(data) { zip_error_init(&error); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  ~Source() { zip_error_fini(&error); }

  zip_int64_t read(void* to, zip_uint64_t count) {
    count = std::min<zip_uint64_t>(count, archive.size() - offset);
    if (!archive.copyBytes(offset, static_cast<char*>(to), static_cast<std::size_t>(count))) {
      return fail(ZIP_ER_READ, EIO);
    }
    offset += count;
    return static_cast<zip_int64_t>(count);
  }

  zip_int64_t seek(void* arguments, zip_uint64_t size) {
    const zip_int64_t place =
        zip_source_seek_compute_offset(offset, archive.size(), arguments, size, &error);
    if (place < 0) return -1;
    offset = static_cast<std::uint64_t>(place);
    return 0;
  }

  [[nodiscard]] zip_int64_t describe(void* to, zip_uint64_t size) {
    if (size < sizeof(zip_stat_t)) return fail(ZIP_ER_INVAL, 0);
    auto* const status = static_cast<zip_stat_t*>(to);
    zip_stat_init(status);
    status->size = archive.size();
    status->valid |= ZIP_STAT_SIZE;
    return sizeof(zip_stat_t);
  }

  zip_int64_t fail(int code, int systemCode) {
    zip_error_set(&error, code, systemCode);
    return -1;
  }

  const Data archive;
  std::uint64_t offset = 0;
  zip_error_t error{};
};

zip_int64_t perform(void* object, void* data, zip_uint64_t size, zip_source_cmd_t command) {
  auto* const source = static_cast<Source*>(object);
  switch (command) {
    case ZIP_SOURCE_OPEN:
      source->offset = 0;
      return 0;
    case ZIP_SOURCE_READ:
      return source->read(data, size);
    case ZIP_SOURCE_CLOSE:
      return 0;
    case ZIP_SOURCE_STAT:
      return source->describe(data, size);
    case ZIP_SOURCE_ERROR:
      return zip_error_to_data(&source->error, data, size);
    case ZIP_SOURCE_FREE:
      delete source;
      return 0;
    case ZIP_SOURCE_SEEK:
      return source->seek(data, size);
    case ZIP_SOURCE_TELL:
      return static_cast<zip_int64_t>(source->offset);
    case ZIP_SOURCE_SUPPORTS:
      return zip_source_make_command_bitmap(
          ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR,
          ZIP_SOURCE_FREE, ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL, ZIP_SOURCE_SUPPORTS, -1);
    default:
      return source->fail(ZIP_ER_OPNOTSUPP, 0);
  }
}

/// Creates the libzip source; nullptr and an error if out of memory.
zip_source_t* makeSource(const Data& archive, zip_error_t* error) {
  auto source = std::make_unique<Source>(archive);
  zip_source_t* const made = zip_source_function_create(&perform, source.get(), error);
  if (made) static_cast<void>(source.release());  // freed by ZIP_SOURCE_FREE
  return made;
}

std::string takeReason(zip_error_t& error) {
  std::string reason = zip_error_strerror(&error);
  zip_error_fini(&error);
  return reason;
}

std::string nameWith(zip_t* archive, std::uint64_t index, zip_flags_t encoding) {
  const char* const name = zip_get_name(archive, index, encoding);
  return name ? name : "";
}

/// libzip converts the entries' times to local time when it opens an archive. The C functions for
/// that are not thread-safe everywhere.
Mutex& openingMutex() {
  static auto& mutex = *new Mutex;
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

Result<std::unique_ptr<ArchiveReader>> ArchiveReader::open(const Archive& archive) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* const source = makeSource(archive.data, &error);
  if (!source) return archive.refusal("cannot be read: " + takeReason(error));
  const MutexLock guard(openingMutex());
  zip_t* const opened = zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &error);
  if (!opened) {
    zip_source_free(source);
    return archive.refusal("cannot be read: " + takeReason(error));
  }
  zip_error_fini(&error);
  return std::unique_ptr<ArchiveReader>(
      new ArchiveReader(archive, std::make_unique<Handle>(opened)));
}

ArchiveReader::ArchiveReader(const Archive& archive, std::unique_ptr<Handle> handle)
    : archive_(archive), handle_(std::move(handle)) {}

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

Status ArchiveReader::read(std::uint64_t index, const Sink& sink) const {
  const auto broken = [&](zip_error_t* error) {
    return archive_.refusal(rawName(index),
                            std::string("cannot be decoded: ") + zip_error_strerror(error));
  };
  const std::unique_ptr<zip_file_t, FileCloser> file(zip_fopen_index(handle_->archive, index, 0));
  if (!file) return broken(zip_get_error(handle_->archive));
  std::vector<char> piece(pieceSize);
  // Read until the end, because libzip verifies the checksum only there.
  while (true) {
    const zip_int64_t count = zip_fread(file.get(), piece.data(), piece.size());
    if (count == 0) return {};
    if (count < 0) return broken(zip_file_get_error(file.get()));
    Status status = sink(std::string_view(piece.data(), static_cast<std::size_t>(count)));
    if (!status) return status;
  }
}

}  // namespace kiv::storage
