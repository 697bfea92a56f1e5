#include "ServiceSettings.h"

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

namespace {

constexpr std::uint64_t longestInterval = 365 * 24 * 60 * 60;  // seconds, the framework's limit

kiv::Error invalid(const std::string& message) {
  return {kiv::SystemErrorDomain, static_cast<int>(std::errc::invalid_argument), message};
}

/// The members of the file. After the first wrong one there is an error, and the values are
/// meaningless.
class Members {
 public:
  explicit Members(const kiv::Dictionary& members) : members_(members) {}

  [[nodiscard]] const std::optional<kiv::Error>& error() const { return error_; }
  [[nodiscard]] bool has(std::string_view name) const { return members_.contains(name); }

  void refuseOthersThan(const auto& names) {
    for (const auto& entry : members_)
      if (std::find(names.begin(), names.end(), entry.key()) == names.end())
        fail(entry.key(), "is unknown");
  }
  void require(std::string_view name) {
    if (!has(name)) fail(name, "is missing");
  }

  std::string path(std::string_view name) {
    auto text = members_[name].string();
    const bool isPath = text.starts_with('/') && text.find('\0') == std::string::npos;
    if (has(name) && !isPath) fail(name, "is to be an absolute path");
    return text;
  }
  std::optional<kiv::URL> url(std::string_view name) { return urlOf(members_[name], name); }
  std::vector<kiv::URL> urls(std::string_view name) {
    std::vector<kiv::URL> urls;
    if (has(name) && !members_[name].isArray()) fail(name, "is to be an array of URLs");
    for (const auto& value : members_[name].array())
      if (auto url = urlOf(value, name)) urls.push_back(*std::move(url));
    return urls;
  }
  std::optional<std::uint64_t> number(std::string_view name, std::uint64_t largest) {
    if (!has(name)) return std::nullopt;
    const auto& value = members_[name];
    const bool isWhole = value.kind() == kiv::Value::Kind::unsignedInteger;
    if (!isWhole || value.unsignedInteger() < 1 || value.unsignedInteger() > largest)
      fail(name, "is to be a whole number from 1 to " + std::to_string(largest));
    return value.unsignedInteger();
  }
  KivResourceTrimOptions::Rule rule(std::string_view name) {
    using Rule = KivResourceTrimOptions::Rule;
    const auto text = members_[name].string();
    if (text == "leastRecentlyShown") return Rule::leastRecentlyShown;
    if (has(name) && text != "orphansOnly")
      fail(name, "is to be \"orphansOnly\" or \"leastRecentlyShown\"");
    return Rule::orphansOnly;
  }
  KivRESTServiceSettings transfers(std::string_view name) {
    auto defaults = KivRESTService::defaultSettings();
    if (!has(name)) return defaults;
    if (!members_[name].isDictionary()) fail(name, "is to be an object");
    auto settings = KivRESTServiceSettings::fromDictionary(members_[name].dictionary(), defaults);
    if (!settings) fail(name, "is wrong: " + settings.error().localizedDescription());
    return std::move(settings).value_or(std::move(defaults));
  }

 private:
  void fail(std::string_view name, const std::string& problem) {
    if (error_) return;
    std::string message("\"");
    message.append(kiv::escapingControlCharacters(name)).append("\" ").append(problem);
    error_ = invalid(message);
  }
  std::optional<kiv::URL> urlOf(const kiv::Value& value, std::string_view name) {
    auto url = kiv::URL::fromString(value.stringView());
    const bool isWeb = url && (url->scheme() == "http" || url->scheme() == "https");
    if (isWeb && !url->host().empty()) return url;
    if (has(name)) fail(name, "is to be an http or https URL");
    return std::nullopt;
  }

  const kiv::Dictionary& members_;
  std::optional<kiv::Error> error_;
};

std::string textOf(const std::optional<kiv::URL>& url) {
  return url ? url->absoluteString() : std::string();
}

}  // namespace

kiv::Result<ServiceSettings> ServiceSettings::read(std::string_view text) {
  static constexpr std::array<std::string_view, 10> known{
      "directory", "configuration", "mirrors", "interval_s", "main",
      "reserve",   "tokenFile",     "limit",   "trimRule",   "transfers"};
  const auto value = kiv::JSON::read(text);
  if (!value) return value.error();
  if (!value->isDictionary()) return invalid("the settings are to be a JSON object");
  Members members(value->dictionary());
  members.refuseOthersThan(known);
  for (const auto* name : {"directory", "configuration", "main"})
    members.require(name);
  if (members.has("trimRule")) members.require("limit");

  auto configuration = members.url("configuration");
  const auto reserve = members.url("reserve");
  const auto interval = members.number("interval_s", longestInterval).value_or(3600);

  auto directory = members.path("directory");
  auto mirrors = members.urls("mirrors");
  auto main = textOf(members.url("main"));
  auto tokenFile = members.path("tokenFile");
  const auto limit = members.number("limit", std::uint64_t{1} << 62);
  const auto rule = members.rule("trimRule");
  auto transfers = members.transfers("transfers");
  if (members.error()) return *members.error();
  return ServiceSettings{std::move(directory),
                         *std::move(configuration),
                         std::move(mirrors),
                         std::chrono::seconds(interval),
                         std::move(main),
                         reserve ? std::optional(textOf(reserve)) : std::nullopt,
                         std::move(tokenFile),
                         limit,
                         rule,
                         std::move(transfers)};
}

std::vector<std::string> ServiceSettings::origins() const {
  std::vector<std::string> origins{configuration.origin()};
  for (const auto& mirror : mirrors)
    origins.push_back(mirror.origin());
  for (const auto& server : {std::optional(mainServer), reserveServer}) {
    const auto url = server ? kiv::URL::fromString(*server) : std::nullopt;
    if (url) origins.push_back(url->origin());
  }
  return origins;
}
