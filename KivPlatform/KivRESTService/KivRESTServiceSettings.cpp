// Settings as JSON. Reading and writing visit one list of the members, so that they cannot diverge.

#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <string_view>
#include <type_traits>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"

namespace {

/// The largest integer that every reader of JSON keeps exactly.
constexpr std::int64_t largestNumber = (std::int64_t{1} << 53) - 1;

template <class Settings, class Visitor>
void visitMembers(Settings& settings, const Visitor& visit) {
  visit("parallelTransfers", settings.parallelTransfers, 1, 1000);
  visit("threads", settings.threads, 1, 64);
  visit("bandwidth", settings.bandwidth, 0, largestNumber);
  visit("connectTimeout_ms", settings.connectTimeout, 1, 24 * 60 * 60 * 1000);
  visit("deadline_s", settings.deadline, 0, 365 * 24 * 60 * 60);
  visit("triesPerServer", settings.triesPerServer, 1, 1000);
  visit("largestBody", settings.largestBody, 0, largestNumber);
  visit("takesBodiesWithoutLength", settings.takesBodiesWithoutLength, 0, 1);
  visit("followsRedirectsToPrivateAddresses", settings.followsRedirectsToPrivateAddresses, 0, 1);
  visit("spoolDirectory", settings.spoolDirectory, 0, 0);
  visit("largestPartials", settings.largestPartials, 0, largestNumber);
  visit("proxy", settings.proxy, 0, 0);
  visit("certificateAuthoritiesPath", settings.certificateAuthoritiesPath, 0, 0);
  visit("userAgent", settings.userAgent, 0, 0);
  visit("http2", settings.http2, 0, 1);
}

// --- Writing -------------------------------------------------------------------------------------

template <class Member>
kiv::Value valueOf(const Member& member) {
  return member;
}

template <class Rep, class Period>
kiv::Value valueOf(const std::chrono::duration<Rep, Period>& time) {
  return time.count();
}

// --- Reading -------------------------------------------------------------------------------------

/// Each reads the value into the member. Returns an empty string, or what the value should be.

std::string read(const kiv::Value& value, bool& member, std::int64_t, std::int64_t) {
  if (!value.isBoolean()) return "true or false";
  member = value.boolean();
  return {};
}

std::string read(const kiv::Value& value, std::string& member, std::int64_t, std::int64_t) {
  // A path or URL ends at a zero byte, and a header field at a line break.
  constexpr std::string_view ends("\0\r\n", 3);
  if (!value.isString() || value.stringView().find_first_of(ends) != std::string_view::npos) {
    return "a string";
  }
  member = value.string();
  return {};
}

std::string read(const kiv::Value& value, std::optional<std::string>& member, std::int64_t least,
                 std::int64_t most) {
  if (value.isNull()) {
    member = std::nullopt;
    return {};
  }
  auto& text = member.emplace();
  return read(value, text, least, most).empty() ? std::string() : "a string or null";
}

template <class Integer>
requires std::is_integral_v<Integer> std::string read(const kiv::Value& value, Integer& member,
                                                      std::int64_t least, std::int64_t most) {
  // Other programs may write a whole number as 5.0.
  const double number = value.floating();
  const bool isWhole = value.isNumber() && !value.isBoolean() && number >= -0x1p53 &&
                       number <= 0x1p53 &&
                       number == static_cast<double>(static_cast<std::int64_t>(number));
  const auto whole = isWhole ? static_cast<std::int64_t>(number) : least - 1;
  if (whole < least || whole > most) {
    return "a whole number from " + std::to_string(least) + " to " + std::to_string(most);
  }
  member = static_cast<Integer>(whole);
  return {};
}

template <class Rep, class Period>
std::string read(const kiv::Value& value, std::chrono::duration<Rep, Period>& member,
                 std::int64_t least, std::int64_t most) {
  std::int64_t count = 0;
  auto expected = read(value, count, least, most);
  if (expected.empty()) member = std::chrono::duration<Rep, Period>(count);
  return expected;
}

kiv::Error invalid(std::string_view name, const std::string& reason) {
  return {KivRESTServiceErrorDomain, static_cast<int>(KivRESTServiceErrorCode::unsupportedRequest),
          "the setting \"" + std::string(name) + "\" " + reason};
}

}  // namespace

kiv::Dictionary KivRESTServiceSettings::dictionary() const {
  kiv::Dictionary dictionary;
  visitMembers(*this, [&](std::string_view name, const auto& member, std::int64_t, std::int64_t) {
    dictionary.set(name, valueOf(member));
  });
  return dictionary;
}

kiv::Result<KivRESTServiceSettings> KivRESTServiceSettings::fromDictionary(
    const kiv::Dictionary& dictionary, const KivRESTServiceSettings& base) {
  KivRESTServiceSettings settings = base;
  const auto known = base.dictionary();
  for (const auto& entry : dictionary) {
    if (!known.contains(entry.key())) return invalid(entry.key(), "is unknown");
  }
  kiv::Status status;
  visitMembers(settings,
               [&](std::string_view name, auto& member, std::int64_t least, std::int64_t most) {
                 const kiv::Value* const value = dictionary.find(name);
                 if (!value || !status) return;
                 const auto expected = read(*value, member, least, most);
                 if (!expected.empty()) status = invalid(name, "is to be " + expected);
               });
  if (!status) return std::move(status).error();
  for (const std::string_view name : {"spoolDirectory", "certificateAuthoritiesPath"}) {
    const auto path = dictionary[name].stringView();
    if (!path.empty() && !path.starts_with('/')) {
      return invalid(name, "is to be an absolute path, or empty");
    }
  }
  return settings;
}
