#include "Tools/contentserver/FileValidators.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <sys/stat.h>
#include <system_error>

namespace kiv {

FileValidators FileValidators::of(const std::filesystem::path& file) {
  struct stat status {};
  std::tm time{};
  if (::stat(file.c_str(), &status) != 0 || !::gmtime_r(&status.st_mtime, &time)) return {};
  std::error_code ignored;
  const auto ticks = std::filesystem::last_write_time(file, ignored).time_since_epoch().count();
  std::array<char, 64> tag{};
  std::snprintf(tag.data(), tag.size(), "\"%llx-%llx\"",
                static_cast<unsigned long long>(status.st_size),
                static_cast<unsigned long long>(ticks));
  // The program uses the C locale, which has the day and month names of HTTP dates.
  std::array<char, 64> date{};
  std::strftime(date.data(), date.size(), "%a, %d %b %Y %H:%M:%S GMT", &time);
  return {tag.data(), date.data()};
}

}  // namespace kiv
