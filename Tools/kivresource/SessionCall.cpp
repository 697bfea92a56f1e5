#include "Tools/kivresource/SessionCall.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "Tools/kivresource/Configuration.h"

namespace tool {

namespace {

using Invalid = SessionCall::Invalid;

/// Reads the arguments of a call and records the first error.
class Arguments {
 public:
  explicit Arguments(kiv::Dictionary call) : call_(std::move(call)) {}

  [[nodiscard]] bool has(std::string_view key) const { return call_.contains(key); }
  /// The string; nullopt for null.
  std::optional<std::string> text(std::string_view key) {
    const kiv::Value& value = call_[key];
    if (!has(key) || (!value.isString() && !value.isNull())) object(key, "is to be a string");
    return value.isString() ? std::optional(value.string()) : std::nullopt;
  }
  /// The configuration, given inline or as a file. Null stands for none.
  kiv::Value config() {
    const kiv::Value& value = call_["config"];
    if (value.isString()) return configInFile(value.string());
    if (!has("config") || (!value.isDictionary() && !value.isNull())) {
      object("config", "is to be an object or a path");
    }
    return value;
  }
  std::chrono::milliseconds milliseconds(std::string_view key) {
    const kiv::Value& value = call_[key];
    if (!value.isNumber() || value.isBoolean() || value.floating() < 0) {
      object(key, "is to be a number of milliseconds");
    }
    constexpr std::uint64_t longest = std::uint64_t{1000} * 60 * 60 * 24 * 365;
    return std::chrono::milliseconds(std::min(value.unsignedInteger(), longest));
  }

  /// The call, or Invalid if there was an error.
  template <class What>
  SessionCall resulting(What what) {
    if (!objection_.empty()) return {Invalid{std::move(objection_)}};
    return {std::move(what)};
  }

 private:
  void object(std::string_view key, std::string_view what) {
    if (objection_.empty()) objection_.append(1, '"').append(key).append("\" ").append(what);
  }
  kiv::Value configInFile(const std::string& path) {
    std::string objection;
    const auto config = readConfiguration(path, objection);
    if (!config && objection_.empty()) objection_ = objection;
    return config.value_or(nullptr);
  }

  kiv::Dictionary call_;
  std::string objection_;
};

SessionCall loadResourcesForConfig(Arguments& arguments) {
  return arguments.resulting(SessionCall::Order(
      [config = arguments.config()](auto& manager) { manager.loadResourcesForConfig(config); }));
}

SessionCall loadResourceWithID(Arguments& arguments) {
  return arguments.resulting(
      SessionCall::Order([id = arguments.text("id"), config = arguments.config()](auto& manager) {
        manager.loadResourceWithID_forConfig(id, config);
      }));
}

SessionCall loadResourcesWithType(Arguments& arguments) {
  return arguments.resulting(SessionCall::Order(
      [type = arguments.text("type"), config = arguments.config()](auto& manager) {
        manager.loadResourcesWithType_forConfig(type, config);
      }));
}

SessionCall updateResourcesForConfig(Arguments& arguments) {
  return arguments.resulting(SessionCall::Order(
      [config = arguments.config()](auto& manager) { manager.updateResourcesForConfig(config); }));
}

SessionCall stopLoading(Arguments& arguments) {
  return arguments.resulting(SessionCall::Order([](auto& manager) { manager.stopLoading(); }));
}

SessionCall allLoadedResources(Arguments& arguments) {
  return arguments.resulting(SessionCall::Query{
      "allLoadedResources", [](const auto& manager) { return manager.allLoadedResources(); }});
}

SessionCall loadedResourcesWithID(Arguments& arguments) {
  return arguments.resulting(
      SessionCall::Query{"loadedResourcesWithID", [id = arguments.text("id")](const auto& manager) {
                           return manager.loadedResourcesWithID(id);
                         }});
}

SessionCall loadedResourcesWithType(Arguments& arguments) {
  return arguments.resulting(SessionCall::Query{
      "loadedResourcesWithType", [type = arguments.text("type")](const auto& manager) {
        return manager.loadedResourcesWithType(type);
      }});
}

SessionCall waitForFinish(Arguments& arguments) {
  constexpr std::chrono::milliseconds usual{30'000};
  const auto timeout = arguments.has("timeout_ms") ? arguments.milliseconds("timeout_ms") : usual;
  return arguments.resulting(SessionCall::WaitForFinish{timeout});
}

SessionCall sleepFor(Arguments& arguments) {
  return arguments.resulting(SessionCall::Sleep{arguments.milliseconds("ms")});
}

/// A server that is not given keeps its current URL.
SessionCall setDomains(Arguments& arguments) {
  using Domain = std::optional<std::string>;
  std::optional<Domain> mainDomain;
  std::optional<Domain> reserveDomain;
  if (arguments.has("main")) mainDomain = arguments.text("main");
  if (arguments.has("reserve")) reserveDomain = arguments.text("reserve");
  return arguments.resulting(SessionCall::Order([mainDomain, reserveDomain](auto&) {
    const auto configuration = KivAppConfiguration::sharedInstance();
    if (mainDomain) configuration->setMainACSDomain(*mainDomain);
    if (reserveDomain) configuration->setReserveACSDomain(*reserveDomain);
  }));
}

SessionCall readNamedCall(std::string_view name, Arguments& arguments) {
  using Reader = SessionCall (*)(Arguments&);
  static constexpr std::array<std::pair<std::string_view, Reader>, 11> readers{{
      {"loadResourcesForConfig", loadResourcesForConfig},
      {"loadResourceWithID", loadResourceWithID},
      {"loadResourcesWithType", loadResourcesWithType},
      {"updateResourcesForConfig", updateResourcesForConfig},
      {"stopLoading", stopLoading},
      {"allLoadedResources", allLoadedResources},
      {"loadedResourcesWithID", loadedResourcesWithID},
      {"loadedResourcesWithType", loadedResourcesWithType},
      {"waitForFinish", waitForFinish},
      {"sleep", sleepFor},
      {"setDomains", setDomains},
  }};
  const auto* const found = std::find_if(readers.begin(), readers.end(),
                                         [&](const auto& reader) { return reader.first == name; });
  if (found == readers.end()) {
    return {Invalid{"there is no call \"" + std::string(name) + "\""}};
  }
  return found->second(arguments);
}

}  // namespace

SessionCall readSessionCall(std::string line) {
  const auto value = kiv::JSON::read(kiv::Data(std::move(line)));
  if (!value) return {Invalid{value.error().localizedDescription()}};
  if (!value->isDictionary()) return {Invalid{"a call is a JSON object"}};
  const kiv::Value& name = value->dictionary()["call"];
  if (!name.isString()) return {Invalid{"\"call\" is to be a string"}};
  Arguments arguments(value->dictionary());
  return readNamedCall(name.stringView(), arguments);
}

}  // namespace tool
