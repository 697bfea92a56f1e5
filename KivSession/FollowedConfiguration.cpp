#include "KivSession/FollowedConfiguration.h"

#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace kiv::session {

namespace {

Error invalid(std::string_view member, std::string_view what) {
  std::string message(1, '"');
  message.append(member).append("\" is to be ").append(what);
  return {SystemErrorDomain, static_cast<int>(std::errc::invalid_argument), message};
}

/// Only these can be fetched: a mistake is told at once, and not with each check.
std::optional<URL> webURL(const Value& value) {
  auto url = URL::fromString(value.stringView());
  const bool isWeb = url && (url->scheme() == "http" || url->scheme() == "https");
  if (!isWeb || url->host().empty()) return std::nullopt;
  return url;
}

/// The number, if it is one from 0 to `largest`.
std::optional<double> numberUpTo(double largest, const Value& value) {
  const double number = value.floating();
  const bool isNumber = value.isNumber() && !value.isBoolean();
  if (!isNumber || !(number >= 0 && number <= largest)) return std::nullopt;
  return number;
}

Status readMirrors(const Value& value, KivConfigurationUpdaterOptions& options) {
  const auto error = [] { return invalid("mirrors", "an array of http or https URLs"); };
  if (!value.isArray()) return error();
  for (const Value& mirror : value.array()) {
    auto url = webURL(mirror);
    if (!url) return error();
    options.mirrors.push_back(*std::move(url));
  }
  return {};
}

Status readInterval(const Value& value, KivConfigurationUpdaterOptions& options) {
  constexpr std::chrono::seconds longest = std::chrono::hours(24 * 365);
  const auto seconds = numberUpTo(static_cast<double>(longest.count()), value);
  if (!seconds || std::trunc(*seconds) != *seconds) {
    return invalid("interval_s", "a whole number from 0 to " + std::to_string(longest.count()));
  }
  options.interval = std::chrono::seconds(static_cast<std::int64_t>(*seconds));
  return {};
}

}  // namespace

Result<FollowedConfiguration> FollowedConfiguration::read(const Dictionary& call) {
  auto url = webURL(call["url"]);
  if (!url) return invalid("url", "an http or https URL");
  FollowedConfiguration read{*std::move(url)};
  if (call.contains("mirrors")) {
    if (Status status = readMirrors(call["mirrors"], read.options); !status) return status.error();
  }
  if (call.contains("interval_s")) {
    if (Status status = readInterval(call["interval_s"], read.options); !status) {
      return status.error();
    }
  }
  if (call.contains("jitter")) {
    const auto jitter = numberUpTo(1, call["jitter"]);
    if (!jitter) return invalid("jitter", "a number from 0 to 1");
    read.options.jitter = *jitter;
  }
  if (call.contains("usesSavedConfiguration")) {
    const Value& value = call["usesSavedConfiguration"];
    if (!value.isBoolean()) return invalid("usesSavedConfiguration", "true or false");
    read.options.usesSavedConfiguration = value.boolean();
  }
  return read;
}

}  // namespace kiv::session
