// Checks any HTTP response, as libcurl passes it on: header lines up to the first NUL, then the
// sizes of pieces of a body, two bytes each. Once as the response to a request for a whole file,
// and once to a range request.

#include <algorithm>
#include <cstddef>
#include <optional>

#include "Fuzz/Require.h"
#include "KivPlatform/KivRESTService/http/ResponseCheck.h"

namespace {

using kiv::fuzz::require;

constexpr std::int64_t largestBody = 100'000;

/// False if the check has rejected the response.
bool checkAnswer(bool goesOn, const kiv::ResponseCheck& check) {
  require(goesOn || check.problem() || check.hasHeaders(), "what is refused is a problem");
  require(!check.problem() || !check.problem()->what.empty() ||
              check.problem()->code == KivRESTServiceErrorCode::bodyTooLarge,
          "a problem says something, unless its code says all");
  return goesOn;
}

bool addHeaders(kiv::ResponseCheck& check, std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const auto line = text.substr(0, end == text.npos ? end : end + 1);
    if (!checkAnswer(check.addHeaderLine(line), check)) return false;
    text.remove_prefix(line.size());
  }
  return true;
}

/// The number of accepted bytes of the body; nothing if the response was rejected.
std::optional<std::int64_t> addBody(kiv::ResponseCheck& check, std::string_view sizes) {
  std::int64_t body = 0;
  while (check.hasHeaders() && sizes.size() >= 2) {
    const auto high = static_cast<std::uint8_t>(sizes[0]);
    const auto low = static_cast<std::uint8_t>(sizes[1]);
    const std::size_t count = std::size_t{high} << 8 | low;
    sizes.remove_prefix(2);
    body += static_cast<std::int64_t>(count);
    if (!checkAnswer(check.addBodyBytes(count), check)) return std::nullopt;
  }
  return body;
}

void checkResponse(std::string_view text, const std::optional<kiv::RequestedRange>& range) {
  const std::size_t headers = std::min(text.find('\0'), text.size());
  kiv::ResponseCheck check(largestBody, range);
  if (!addHeaders(check, text.substr(0, headers))) return;
  const auto body = addBody(check, text.substr(std::min(headers + 1, text.size())));
  (void)check.version();
  require(!check.retryAfter() || check.retryAfter()->count() >= 0,
          "nobody waits less than nothing");
  if (!body) return;
  check.end();
  if (check.problem()) return;
  require(check.hasHeaders(), "a response without a problem has its headers");
  require(check.status() >= 100 && check.status() <= 999, "it has a status");
  require(range || !check.isContinuation(), "nobody goes on who was not asked to");
  if (!check.isFile()) return;
  const std::int64_t length = *body + (check.isContinuation() ? range->first : 0);
  require(length <= largestBody, "a file is no larger than allowed");
  require(!check.fileLength() || *check.fileLength() == length, "a file is whole");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text = kiv::fuzz::textOf(bytes, size);
  checkResponse(text, std::nullopt);
  checkResponse(text, kiv::RequestedRange{10, 20, {"\"v\"", ""}});
  checkResponse(text, kiv::RequestedRange{10, std::nullopt, {"", "Mon, 01 Jan 2024 00:00:00 GMT"}});
  return 0;
}
