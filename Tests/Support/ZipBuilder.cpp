#include "Tests/Support/ZipBuilder.h"

#include <stdexcept>
#include <utility>
#include <zlib.h>

namespace kiv::test {

namespace {

constexpr std::uint16_t descriptorFlag = 1 << 3;
constexpr std::uint32_t saturated = 0xFFFFFFFF;

void append(std::string& out, std::uint64_t number, int bytes) {
  for (int i = 0; i < bytes; ++i)
    out += static_cast<char>((number >> (8 * i)) & 0xFF);
}
void append16(std::string& out, std::uint64_t number) {
  append(out, number, 2);
}
void append32(std::string& out, std::uint64_t number) {
  append(out, number, 4);
}
void append64(std::string& out, std::uint64_t number) {
  append(out, number, 8);
}

/// An entry with a value for every field.
struct Record {
  const ZipEntry& entry;
  std::string packed;
  std::uint32_t crc;
  std::uint64_t size;
  std::uint64_t packedSize;
  std::uint64_t offset;
  std::uint16_t flags;
};

Record recordOf(const ZipEntry& entry, std::uint64_t offset) {
  std::string packed = entry.packed        ? *entry.packed
                       : entry.method == 8 ? ZipBuilder::deflated(entry.contents)
                                           : entry.contents;
  const std::uint64_t packedSize = entry.packedSize.value_or(packed.size());
  return Record{
      entry,
      std::move(packed),
      entry.crc.value_or(ZipBuilder::checksum(entry.contents)),
      entry.size.value_or(entry.contents.size()),
      packedSize,
      entry.headerOffset.value_or(offset),
      static_cast<std::uint16_t>(entry.flags | (entry.dataDescriptor ? descriptorFlag : 0))};
}

void appendLocal(std::string& out, const Record& record) {
  const ZipEntry& entry = record.entry;
  const std::string& name = entry.localName ? *entry.localName : entry.name;
  const bool isLater = entry.dataDescriptor;
  append32(out, 0x04034b50);
  append16(out, entry.zip64 ? 45 : 20);
  append16(out, record.flags);
  append16(out, entry.method);
  append32(out, 0x5A210000);  // a fixed date
  append32(out, isLater ? 0 : record.crc);
  append32(out, entry.zip64 ? saturated : isLater ? 0 : record.packedSize);
  append32(out, entry.zip64 ? saturated : isLater ? 0 : record.size);
  append16(out, name.size());
  append16(out, entry.zip64 ? 20 : 0);
  out += name;
  if (entry.zip64) {
    append16(out, 0x0001);
    append16(out, 16);
    append64(out, isLater ? 0 : record.size);
    append64(out, isLater ? 0 : record.packedSize);
  }
  out += record.packed;
  if (isLater) {
    append32(out, 0x08074b50);
    append32(out, record.crc);
    append(out, record.packedSize, entry.zip64 ? 8 : 4);
    append(out, record.size, entry.zip64 ? 8 : 4);
  }
}

void appendCentral(std::string& out, const Record& record) {
  const ZipEntry& entry = record.entry;
  append32(out, 0x02014b50);
  append16(out, entry.madeBy);
  append16(out, entry.zip64 ? 45 : 20);
  append16(out, record.flags);
  append16(out, entry.method);
  append32(out, 0x5A210000);
  append32(out, record.crc);
  append32(out, entry.zip64 ? saturated : record.packedSize);
  append32(out, entry.zip64 ? saturated : record.size);
  append16(out, entry.name.size());
  append16(out, entry.zip64 ? 28 : 0);
  append16(out, 0);
  append16(out, 0);
  append16(out, 0);
  append32(out, entry.mode << 16);
  append32(out, entry.zip64 ? saturated : record.offset);
  out += entry.name;
  if (entry.zip64) {
    append16(out, 0x0001);
    append16(out, 24);
    append64(out, record.size);
    append64(out, record.packedSize);
    append64(out, record.offset);
  }
}

void appendEnd64(std::string& out, std::uint64_t count, std::uint64_t size, std::uint64_t offset) {
  const std::uint64_t at = out.size();
  append32(out, 0x06064b50);
  append64(out, 44);
  append16(out, 45);
  append16(out, 45);
  append32(out, 0);
  append32(out, 0);
  append64(out, count);
  append64(out, count);
  append64(out, size);
  append64(out, offset);
  append32(out, 0x07064b50);
  append32(out, 0);
  append64(out, at);
  append32(out, 1);
}

}  // namespace

ZipBuilder& ZipBuilder::add(ZipEntry entry) {
  entries_.push_back(std::move(entry));
  return *this;
}

ZipBuilder& ZipBuilder::addFile(std::string name, std::string contents) {
  return add({.name = std::move(name), .contents = std::move(contents), .method = 8});
}

ZipBuilder& ZipBuilder::addDirectory(std::string name) {
  return add({.name = std::move(name), .mode = 0040755});
}

std::string ZipBuilder::build() const {
  std::string out;
  std::string list;
  for (const ZipEntry& entry : entries_) {
    const Record record = recordOf(entry, out.size());
    appendLocal(out, record);
    appendCentral(list, record);
  }
  const std::uint64_t offset = listOffset.value_or(out.size());
  const std::uint64_t count = entryCount.value_or(entries_.size());
  out += list;
  if (zip64End) appendEnd64(out, count, list.size(), offset);
  append32(out, 0x06054b50);
  append16(out, 0);
  append16(out, 0);
  append16(out, zip64End ? 0xFFFF : count);
  append16(out, zip64End ? 0xFFFF : count);
  append32(out, zip64End ? saturated : list.size());
  append32(out, zip64End ? saturated : offset);
  append16(out, comment.size());
  return out + comment;
}

std::string ZipBuilder::deflated(std::string_view bytes) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    throw std::runtime_error("deflate does not start");
  }
  std::string out(deflateBound(&stream, static_cast<uLong>(bytes.size())), '\0');
  std::string input(bytes);
  stream.next_in = reinterpret_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("deflate fails");
  return out;
}

std::uint32_t ZipBuilder::checksum(std::string_view bytes) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

}  // namespace kiv::test
