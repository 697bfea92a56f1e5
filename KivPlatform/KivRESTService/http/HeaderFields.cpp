// Values from a server are accepted only in the forms that RFC 9110 defines. They are sent back in
// later requests and written to disk, so nothing else may pass.

#include "KivPlatform/KivRESTService/http/HeaderFields.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <iomanip>
#include <locale>
#include <sstream>
#include <string>

#include "KivPlatform/Foundation/text/ASCII.h"

namespace kiv {

namespace {

/// etagc (RFC 9110, 8.8.3): visible characters except the double quote, and non-ASCII bytes.
constexpr bool mayStandInTag(char character) noexcept {
  const auto byte = static_cast<unsigned char>(character);
  return byte == 0x21 || (byte >= 0x23 && byte <= 0x7E) || byte >= 0x80;
}

constexpr bool mayStandInDate(char character) noexcept {
  return ascii::isLetter(character) || ascii::isDigit(character) ||
         std::string_view(" ,:-").find(character) != std::string_view::npos;
}

/// The date, if the text has exactly that form.
std::optional<std::tm> readDate(std::string_view text, const char* form) {
  std::stringstream stream{std::string(text)};
  stream.imbue(std::locale::classic());
  std::tm date{};
  if (!(stream >> std::get_time(&date, form))) return std::nullopt;
  // get_time also accepts incomplete dates and additional blanks, so the result is compared with
  // what put_time writes.
  stream.clear();
  stream.str({});
  stream << std::put_time(&date, form);
  return stream.str() == text ? std::optional(date) : std::nullopt;
}

/// Seconds since 1970; nothing if there is no such day.
std::optional<std::int64_t> secondsFromDate(const std::tm& date) {
  using namespace std::chrono;
  const year_month_day day{year(date.tm_year + 1900), month(static_cast<unsigned>(date.tm_mon + 1)),
                           std::chrono::day(static_cast<unsigned>(date.tm_mday))};
  if (!day.ok()) return std::nullopt;
  const auto moment =
      sys_days(day) + hours(date.tm_hour) + minutes(date.tm_min) + seconds(date.tm_sec);
  return duration_cast<seconds>(moment.time_since_epoch()).count();
}

}  // namespace

bool isEntityTag(std::string_view text) noexcept {
  if (text.starts_with("W/")) text.remove_prefix(2);
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return false;
  const std::string_view opaque = text.substr(1, text.size() - 2);
  return std::all_of(opaque.begin(), opaque.end(), mayStandInTag);
}

bool isStrongEntityTag(std::string_view text) noexcept {
  return text.starts_with('"') && isEntityTag(text);
}

bool hasCharactersOfDate(std::string_view text) noexcept {
  return !text.empty() && std::all_of(text.begin(), text.end(), mayStandInDate);
}

std::optional<std::int64_t> secondsFromHTTPDate(std::string_view text) {
  // RFC 9110, 5.6.7: the current form and the two obsolete ones.
  for (const char* const form :
       {"%a, %d %b %Y %H:%M:%S GMT", "%A, %d-%b-%y %H:%M:%S GMT", "%a %b %e %H:%M:%S %Y"}) {
    const auto date = readDate(text, form);
    const auto moment = date ? secondsFromDate(*date) : std::nullopt;
    if (moment && *moment >= 0) return moment;
  }
  return std::nullopt;
}

std::int64_t secondsNow() noexcept {
  using std::chrono::system_clock;
  return std::chrono::duration_cast<std::chrono::seconds>(system_clock::now().time_since_epoch())
      .count();
}

std::optional<std::chrono::seconds> waitFromRetryAfter(std::string_view text,
                                                       std::optional<std::int64_t> date) {
  static constexpr std::int64_t year = std::int64_t{366} * 24 * 3600;
  const auto bounded = [](std::int64_t seconds) {
    return std::chrono::seconds(std::clamp<std::int64_t>(seconds, 0, year));
  };
  std::uint64_t number = 0;
  const auto* const last = text.data() + text.size();
  const auto [end, problem] = std::from_chars(text.data(), last, number);
  if (end == last && problem == std::errc::result_out_of_range) return bounded(year);
  if (end == last && problem == std::errc()) {
    return bounded(static_cast<std::int64_t>(std::min<std::uint64_t>(number, year)));
  }
  const auto moment = secondsFromHTTPDate(text);
  if (!moment) return std::nullopt;
  return bounded(*moment - date.value_or(secondsNow()));
}

}  // namespace kiv
