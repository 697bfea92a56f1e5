#include "KivSession/SessionCall.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>
#include <optional>
#include <utility>

#include "KivSession/ConfigurationFile.h"
#include "KivSession/MaintenanceJSON.h"
#include "KivSession/ResourceJSON.h"

namespace kiv::session {

namespace {

using Action = decltype(SessionCall::what);
using Invalid = SessionCall::Invalid;
using Operation = SessionCall::Operation;

/// Reads the arguments of a call and records the first error.
class Arguments {
 public:
  explicit Arguments(Dictionary call) : call_(std::move(call)) {}

  [[nodiscard]] bool has(std::string_view key) const { return call_.contains(key); }
  /// The string; nullopt for null.
  std::optional<std::string> text(std::string_view key) {
    const Value& value = call_[key];
    if (!has(key) || (!value.isString() && !value.isNull())) object(key, "is to be a string");
    return value.isString() ? std::optional(value.string()) : std::nullopt;
  }
  bool boolean(std::string_view key) {
    const Value& value = call_[key];
    if (!value.isBoolean()) object(key, "is to be true or false");
    return value.boolean();
  }
  std::int64_t integer(std::string_view key) {
    const Value& value = call_[key];
    if (!value.isNumber() || value.isBoolean() || value.floating() < 0) {
      object(key, "is to be a number of at least 0");
    }
    return value.signedInteger();
  }
  Dictionary dictionary(std::string_view key) {
    const Value& value = call_[key];
    if (!value.isDictionary()) object(key, "is to be an object");
    return value.dictionary();
  }
  /// The members, all strings, as headers; none if it is not given.
  KivRESTServiceRequest::Headers headers(std::string_view key) {
    KivRESTServiceRequest::Headers headers;
    if (!has(key)) return headers;
    const Value& value = call_[key];
    bool areStrings = value.isDictionary();
    for (const auto& entry : value.dictionary()) {
      areStrings = areStrings && entry.value.isString();
      headers.push_back({std::string(entry.key()), entry.value.string()});
    }
    if (!areStrings) object(key, "is to be an object of strings");
    return headers;
  }
  /// The configuration, given inline or as a file. Null stands for none.
  Value config() {
    const Value& value = call_["config"];
    if (value.isString()) return configInFile(value.string());
    if (!has("config") || (!value.isDictionary() && !value.isNull())) {
      object("config", "is to be an object or a path");
    }
    return value;
  }
  std::chrono::milliseconds milliseconds(std::string_view key) {
    const Value& value = call_[key];
    if (!value.isNumber() || value.isBoolean() || value.floating() < 0) {
      object(key, "is to be a number of milliseconds");
    }
    constexpr std::uint64_t longest = std::uint64_t{1000} * 60 * 60 * 24 * 365;
    return std::chrono::milliseconds(std::min(value.unsignedInteger(), longest));
  }

  /// Which loaded resources may be removed, in which order; none if it is not given.
  KivResourceTrimOptions::Rule rule(std::string_view key) {
    using Rule = KivResourceTrimOptions::Rule;
    const Value& value = call_[key];
    if (!has(key) || value.isNull()) return Rule::orphansOnly;
    if (value.stringView() == "oldest") return Rule::oldestStamp;
    if (value.stringView() != "leastShown") object(key, R"(is to be "oldest" or "leastShown")");
    return Rule::leastRecentlyShown;
  }

  /// All members of the call.
  [[nodiscard]] const Dictionary& members() const noexcept { return call_; }

  /// The call, or Invalid if there was an error.
  Action resulting(Action what) {
    if (!problem_.empty()) return Invalid{std::move(problem_)};
    return what;
  }

 private:
  void object(std::string_view key, std::string_view what) {
    if (problem_.empty()) problem_.append(1, '"').append(key).append("\" ").append(what);
  }
  Value configInFile(const std::string& path) {
    auto config = readRegularConfigurationFile(path);
    if (config) return *std::move(config);
    if (problem_.empty()) problem_ = config.error().localizedDescription();
    return nullptr;
  }

  Dictionary call_;
  std::string problem_;
};

/// An operation of the manager without a result.
template <class Function>
Operation command(Function function) {
  return {[function = std::move(function)](KivResourceManager& manager) {
            function(manager);
            return Dictionary();
          },
          false};
}

/// The same operation, noted as one that may end the wait of requests for their answers.
Operation endingRequests(Operation operation) {
  operation.endsRequests = true;
  return operation;
}

/// An operation of the manager that returns resources.
template <class Function>
Operation query(Function function) {
  return {[function = std::move(function)](KivResourceManager& manager) {
    return Dictionary{{"resources", resourcesJSON(function(std::as_const(manager)))}};
  }};
}

// --- Passes --------------------------------------------------------------------------------------

Action loadResourcesForConfig(Arguments& arguments) {
  return SessionCall::StartPass{KivResourcePass::load(arguments.config())};
}

Action loadResourceWithID(Arguments& arguments) {
  auto id = arguments.text("id");
  return SessionCall::StartPass{{arguments.config(), std::move(id)}};
}

Action loadResourcesWithType(Arguments& arguments) {
  auto type = arguments.text("type");
  return SessionCall::StartPass{{arguments.config(), std::nullopt, std::move(type)}};
}

Action updateResourcesForConfig(Arguments& arguments) {
  return SessionCall::StartPass{KivResourcePass::update(arguments.config())};
}

Action revalidate(Arguments& arguments) {
  KivResourceRevalidation what;
  if (arguments.has("id")) what.resourceID = arguments.text("id");
  if (arguments.has("type")) what.type = arguments.text("type");
  return SessionCall::Revalidate{std::move(what)};
}

Action stopLoading(Arguments&) {
  return endingRequests(command([](auto& manager) { manager.stopLoading(); }));
}

Action waitForFinish(Arguments& arguments) {
  constexpr std::chrono::milliseconds usual{30'000};
  return SessionCall::WaitForFinish{
      arguments.has("timeout_ms") ? arguments.milliseconds("timeout_ms") : usual};
}

Action sleepFor(Arguments& arguments) {
  return SessionCall::Sleep{arguments.milliseconds("ms")};
}

Action reportProgress(Arguments& arguments) {
  return SessionCall::ReportProgress{arguments.boolean("enabled")};
}

Action reportPasses(Arguments& arguments) {
  return SessionCall::ReportPasses{arguments.boolean("enabled")};
}

Action answerRequests(Arguments& arguments) {
  return SessionCall::AnswerRequests{arguments.boolean("enabled")};
}

Action sendRequest(Arguments& arguments) {
  const auto number = static_cast<std::uint64_t>(arguments.integer("request"));
  return SessionCall::AnswerRequest{number, arguments.headers("headers")};
}

Action refuseRequest(Arguments& arguments) {
  const auto number = static_cast<std::uint64_t>(arguments.integer("request"));
  return SessionCall::AnswerRequest{number, std::nullopt};
}

Action allowTransfers(Arguments& arguments) {
  return SessionCall::AllowTransfers{arguments.boolean("enabled")};
}

Action pause(Arguments&) {
  return endingRequests(command([](auto& manager) { manager.loader()->restService()->pause(); }));
}

Action resume(Arguments&) {
  return command([](auto& manager) { manager.loader()->restService()->resume(); });
}

Action follow(Arguments& arguments) {
  auto followed = FollowedConfiguration::read(arguments.members());
  if (!followed) return Invalid{followed.error().localizedDescription()};
  return SessionCall::Follow{*std::move(followed)};
}

Action checkNow(Arguments&) {
  return SessionCall::CheckNow{};
}

Action stopFollowing(Arguments&) {
  return SessionCall::StopFollowing{};
}

Action setBandwidth(Arguments& arguments) {
  return endingRequests(command([bandwidth = arguments.integer("bytesPerSecond")](auto& manager) {
    manager.loader()->restService()->setBandwidth(bandwidth);
  }));
}

// --- Queries -------------------------------------------------------------------------------------

Action allLoadedResources(Arguments&) {
  return query([](const auto& manager) { return manager.allLoadedResources(); });
}

Action loadedResourcesWithID(Arguments& arguments) {
  return query([id = arguments.text("id")](const auto& manager) {
    return manager.loadedResourcesWithID(id);
  });
}

Action loadedResourcesWithType(Arguments& arguments) {
  return query([type = arguments.text("type")](const auto& manager) {
    return manager.loadedResourcesWithType(type);
  });
}

Action takeLease(Arguments& arguments) {
  return SessionCall::TakeLease{arguments.text("id")};
}

Action endLease(Arguments& arguments) {
  return SessionCall::EndLease{static_cast<std::uint64_t>(arguments.integer("lease"))};
}

Action state(Arguments&) {
  return SessionCall::State{};
}

// --- Maintenance ---------------------------------------------------------------------------------

Error failureOf(std::optional<Error> error) {
  return error ? *std::move(error) : Error(SystemErrorDomain, 0, "the storage root cannot be read");
}

Action audit(Arguments&) {
  return Operation{[](KivResourceManager& manager) -> Result<Dictionary> {
    std::optional<Error> error;
    const auto found = KivResourceMaintenance::audit(manager, &error);
    if (!found) return failureOf(std::move(error));
    Dictionary members;
    addAudit(members, *found);
    members.set("downloadsAreInFlight", found->downloadsAreInFlight);
    members.set("listDoubt", errorJSON(found->listDoubt));
    return members;
  }};
}

Action cleanUpOrphans(Arguments& arguments) {
  using Mode = KivResourceMaintenance::Mode;
  const bool isDry = arguments.has("dryRun") && arguments.boolean("dryRun");
  return Operation{[mode = isDry ? Mode::dryRun : Mode::remove](
                       KivResourceManager& manager) -> Result<Dictionary> {
    std::optional<Error> error;
    const auto cleanUp = KivResourceMaintenance::cleanUpOrphans(manager, mode, &error);
    if (!cleanUp) return failureOf(std::move(error));
    Dictionary members;
    addCleanUp(members, *cleanUp);
    return members;
  }};
}

Action trim(Arguments& arguments) {
  using Mode = KivResourceMaintenance::Mode;
  KivResourceTrimOptions options;
  options.bytes = static_cast<std::uint64_t>(arguments.integer("bytes"));
  options.rule = arguments.rule("resources");
  const bool isDry = arguments.has("dryRun") && arguments.boolean("dryRun");
  return Operation{[options, mode = isDry ? Mode::dryRun : Mode::remove](
                       KivResourceManager& manager) -> Result<Dictionary> {
    std::optional<Error> error;
    const auto trimmed = KivResourceMaintenance::trim(manager, options, mode, &error);
    if (!trimmed) return failureOf(std::move(error));
    Dictionary members;
    addTrim(members, *trimmed);
    return members;
  }};
}

Action noteShown(Arguments& arguments) {
  return command([id = arguments.text("id")](auto& manager) {
    for (const auto& resource : manager.loadedResourcesWithID(id))
      KivResourceMaintenance::noteShown(*resource);
  });
}

Action space(Arguments&) {
  return Operation{[](KivResourceManager&) -> Result<Dictionary> {
    std::optional<Error> error;
    const auto found = KivResourceMaintenance::space(&error);
    if (!found) return failureOf(std::move(error));
    return Dictionary{{"cacheUsed", found->cacheUsed},
                      {"fileSystemAvailable", found->fileSystemAvailable},
                      {"fileSystemUsed", found->fileSystemUsed}};
  }};
}

// --- Settings ------------------------------------------------------------------------------------

/// A server that is not given keeps its current URL.
Action setDomains(Arguments& arguments) {
  using Domain = std::optional<std::string>;
  std::optional<Domain> mainDomain;
  std::optional<Domain> reserveDomain;
  if (arguments.has("main")) mainDomain = arguments.text("main");
  if (arguments.has("reserve")) reserveDomain = arguments.text("reserve");
  return command([mainDomain, reserveDomain](auto&) {
    const auto configuration = KivAppConfiguration::sharedInstance();
    if (mainDomain) configuration->setMainACSDomain(*mainDomain);
    if (reserveDomain) configuration->setReserveACSDomain(*reserveDomain);
  });
}

Action settings(Arguments&) {
  return Operation{[](KivResourceManager& manager) {
    return Dictionary{{"settings", manager.loader()->restService()->settings().dictionary()}};
  }};
}

Action setSettings(Arguments& arguments) {
  return SessionCall::SetSettings{arguments.dictionary("settings")};
}

Action readNamedCall(std::string_view name, Arguments& arguments) {
  using Reader = Action (*)(Arguments&);
  static constexpr std::array<std::pair<std::string_view, Reader>, 34> readers{{
      {"loadResourcesForConfig", loadResourcesForConfig},
      {"loadResourceWithID", loadResourceWithID},
      {"loadResourcesWithType", loadResourcesWithType},
      {"updateResourcesForConfig", updateResourcesForConfig},
      {"revalidate", revalidate},
      {"stopLoading", stopLoading},
      {"waitForFinish", waitForFinish},
      {"sleep", sleepFor},
      {"reportProgress", reportProgress},
      {"reportPasses", reportPasses},
      {"answerRequests", answerRequests},
      {"sendRequest", sendRequest},
      {"refuseRequest", refuseRequest},
      {"allowTransfers", allowTransfers},
      {"pause", pause},
      {"resume", resume},
      {"follow", follow},
      {"checkNow", checkNow},
      {"stopFollowing", stopFollowing},
      {"setBandwidth", setBandwidth},
      {"allLoadedResources", allLoadedResources},
      {"loadedResourcesWithID", loadedResourcesWithID},
      {"loadedResourcesWithType", loadedResourcesWithType},
      {"takeLease", takeLease},
      {"endLease", endLease},
      {"state", state},
      {"audit", audit},
      {"cleanUpOrphans", cleanUpOrphans},
      {"trim", trim},
      {"noteShown", noteShown},
      {"space", space},
      {"setDomains", setDomains},
      {"settings", settings},
      {"setSettings", setSettings},
  }};
  const auto* const found = std::find_if(readers.begin(), readers.end(),
                                         [&](const auto& reader) { return reader.first == name; });
  if (found == readers.end()) return Invalid{"there is no call \"" + std::string(name) + "\""};
  auto what = found->second(arguments);
  return arguments.resulting(std::move(what));
}

}  // namespace

SessionCall readSessionCall(std::string_view line) {
  const auto invalid = [](std::string problem, Value tag = nullptr) {
    return SessionCall{{}, std::move(tag), Invalid{std::move(problem)}};
  };
  const auto value = JSON::read(line);
  if (!value && value.error().code == static_cast<int>(JSONErrorCode::tooLarge)) {
    throw std::bad_alloc();
  }
  if (!value) return invalid(value.error().localizedDescription());
  if (!value->isDictionary()) return invalid("a call is a JSON object");
  const Dictionary& call = value->dictionary();
  const Value& tag = call["tag"];
  const bool isTag = tag.isString() || (tag.isNumber() && !tag.isBoolean());
  if (call.contains("tag") && !isTag) return invalid("\"tag\" is to be a string or a number");
  const Value& name = call["call"];
  if (!name.isString()) return invalid("\"call\" is to be a string", tag);
  Arguments arguments(call);
  return {name.string(), tag, readNamedCall(name.stringView(), arguments)};
}

}  // namespace kiv::session
