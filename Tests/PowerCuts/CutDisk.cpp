// What is left of a disk whose power was cut, from the log of kivresource-recorded-disk:
//
//     kivresource-cut-disk count LOG
//     kivresource-cut-disk cut LOG RECORDS SEED IMAGE
//
// "count" prints the number of records. "cut" writes into IMAGE, which must be a copy of the image
// as it was when the recording began, what the disk held after that many records, and prints the
// events until then.
//
// SEED says what happens to writes that no flush had followed: "all" puts them all on the medium;
// otherwise, as in a disk with a volatile cache, each page of each of them is there or is lost, by
// a choice that the number SEED repeats.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tests/PowerCuts/WriteLog.h"

namespace {

using kiv::powercuts::Record;
using kiv::powercuts::WriteLogReader;

class CutDisk {
 public:
  CutDisk(const std::string& path, std::string_view seed) : isVolatile_(seed != "all") {
    if (isVolatile_)
      chance_.seed(static_cast<std::uint32_t>(std::strtoul(seed.data(), nullptr, 10)));
    image_.exceptions(std::ios::failbit | std::ios::badbit);
    image_.open(path, std::ios::binary | std::ios::in | std::ios::out);
  }

  void apply(Record record) {
    switch (record.kind) {
      case Record::Kind::write:
        unflushed_.push_back(std::move(record));
        break;
      case Record::Kind::flush:
        for (const Record& write : std::exchange(unflushed_, {}))
          put(write.offset, write.bytes);
        break;
      case Record::Kind::event:
        std::fwrite(record.bytes.data(), 1, record.bytes.size(), stdout);
        break;
    }
  }

  void cutPower() {
    constexpr std::size_t page = 4096;
    for (const Record& write : unflushed_) {
      for (std::size_t at = 0; at < write.bytes.size(); at += page) {
        const bool isThere = !isVolatile_ || (chance_() & 1) != 0;
        if (isThere) put(write.offset + at, std::string_view(write.bytes).substr(at, page));
      }
    }
    image_.close();
  }

 private:
  void put(std::uint64_t offset, std::string_view bytes) {
    image_.seekp(static_cast<std::streamoff>(offset));
    image_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }

  const bool isVolatile_;
  std::mt19937 chance_;
  std::fstream image_;
  std::vector<Record> unflushed_;
};

void count(const std::string& log) {
  WriteLogReader reader(log);
  std::size_t records = 0;
  while (reader.next())
    ++records;
  std::printf("%zu\n", records);
}

void cut(const std::string& log, std::size_t records, std::string_view seed,
         const std::string& image) {
  WriteLogReader reader(log);
  CutDisk disk(image, seed);
  for (std::size_t done = 0; done < records; ++done) {
    auto record = reader.next();
    if (!record) break;
    disk.apply(*std::move(record));
  }
  disk.cutPower();
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  try {
    if (words.size() == 2 && words[0] == "count") {
      ::count(words[1]);
      return 0;
    }
    if (words.size() == 5 && words[0] == "cut") {
      cut(words[1], std::strtoul(words[2].c_str(), nullptr, 10), words[3], words[4]);
      return 0;
    }
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "kivresource-cut-disk: %s\n", exception.what());
    return 1;
  }
  std::fputs("usage: kivresource-cut-disk count LOG | cut LOG RECORDS SEED IMAGE\n", stderr);
  return 2;
}
