#include "KivPlatform/KivStorageService/archive/ArchiveSource.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>

namespace kiv::storage {

namespace {

/// An archive as the decoder sees it: a file that is opened, read and sought in.
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

}  // namespace

zip_source_t* makeArchiveSource(const Data& archive, zip_error_t* error) {
  auto source = std::make_unique<Source>(archive);
  zip_source_t* const made = zip_source_function_create(&perform, source.get(), error);
  if (made) static_cast<void>(source.release());  // freed by ZIP_SOURCE_FREE
  return made;
}

}  // namespace kiv::storage
