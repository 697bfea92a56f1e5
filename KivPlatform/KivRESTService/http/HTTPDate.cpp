#include "KivPlatform/KivRESTService/http/HTTPDate.h"

#include <algorithm>
#include <charconv>
#include <string>

#include <curl/curl.h>

namespace kiv {

std::optional<std::int64_t> secondsFromHTTPDate(std::string_view text) {
  const auto seconds = curl_getdate(std::string(text).c_str(), nullptr);
  if (seconds < 0) return std::nullopt;
  return static_cast<std::int64_t>(seconds);
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
