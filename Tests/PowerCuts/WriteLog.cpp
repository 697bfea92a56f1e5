#include "Tests/PowerCuts/WriteLog.h"

#include <array>

namespace kiv::powercuts {

namespace {

/// Precedes the bytes of each record, in the machine's order.
struct Header {
  std::uint64_t kind;
  std::uint64_t offset;
  std::uint64_t size;
};

}  // namespace

WriteLog::WriteLog(const std::string& path) {
  file_.exceptions(std::ios::failbit | std::ios::badbit);
  file_.open(path, std::ios::binary | std::ios::trunc);
}

void WriteLog::append(Record::Kind kind, std::uint64_t offset, std::string_view bytes) {
  const Header header{static_cast<std::uint64_t>(kind), offset, bytes.size()};
  file_.write(reinterpret_cast<const char*>(&header), sizeof header);
  file_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file_.flush();
}

WriteLogReader::WriteLogReader(const std::string& path) {
  file_.exceptions(std::ios::failbit | std::ios::badbit);
  file_.open(path, std::ios::binary);
}

std::optional<Record> WriteLogReader::next() {
  if (file_.peek() == std::ifstream::traits_type::eof()) return std::nullopt;
  Header header{};
  file_.read(reinterpret_cast<char*>(&header), sizeof header);
  Record record{static_cast<Record::Kind>(header.kind), header.offset,
                std::string(header.size, '\0')};
  file_.read(record.bytes.data(), static_cast<std::streamsize>(header.size));
  return record;
}

}  // namespace kiv::powercuts
