// Makes any lines as the calls of a session. There is no network: calls that name servers are left
// out, and so are those that only wait. Files are written in a temporary directory only, and read
// below the current one.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz/Require.h"
#include "KivResource/KivResource.h"
#include "KivSession/Session.h"

namespace {

using kiv::fuzz::require;

constexpr std::size_t mostLines = 50;

/// A new directory, which is removed at the end.
std::string temporaryDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "session-fuzz-XXXXXX").string();
  require(::mkdtemp(path.data()) != nullptr, "a temporary directory");
  static const struct Removal {
    std::string path;
    ~Removal() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  } removal{path};
  return path;
}

bool leadsOutside(const kiv::Value& path) {
  return path.isString() && (path.stringView().starts_with('/') ||
                             path.stringView().find("..") != std::string_view::npos);
}

/// Whether the call may be made here. One that cannot be read may.
bool isHarmless(const std::string& line) {
  const auto call = kiv::JSON::read(line);
  if (!call || !call->isDictionary()) return true;
  const auto& members = call->dictionary();
  constexpr std::array<std::string_view, 3> leftOut{"setDomains", "sleep", "waitForFinish"};
  const auto& name = members["call"];
  if (name.isString() &&
      std::find(leftOut.begin(), leftOut.end(), name.stringView()) != leftOut.end()) {
    return false;
  }
  const auto& settings = members["settings"].dictionary();
  return !leadsOutside(members["config"]) && !settings.contains("spoolDirectory") &&
         !settings.contains("proxy") && !settings.contains("certificateAuthoritiesPath");
}

std::vector<std::string> callsIn(std::string_view text) {
  std::vector<std::string> calls;
  while (!text.empty() && calls.size() < mostLines) {
    const auto end = std::min(text.find('\n'), text.size());
    std::string line(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (isHarmless(line)) calls.push_back(std::move(line));
  }
  return calls;
}

/// A line is one JSON object on one line. Its member "tag" is the last one.
void examine(const kiv::Dictionary& line, std::size_t& tagged) {
  const std::string text = kiv::JSON::toCompactString(line);
  require(std::none_of(text.begin(), text.end(), [](char c) { return c == '\n' || c == '\0'; }),
          "a line is one line");
  const auto again = kiv::JSON::read(text);
  require(again && again->isDictionary(), "a line is a JSON object");
  require(line.contains("result") + line.contains("event") + line.contains("error") >= 1,
          "a line is a result, an event or an error");
  if (line.contains("tag")) ++tagged;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const std::string directory = temporaryDirectory();
  kiv::SystemLog::setHandler([](std::string_view) {});
  const auto root = directory + "/root";
  KivStorageService::setRootPath(root);
  KivResourceLookup::setRoots(std::vector<std::string>{directory});
  const auto calls = callsIn(kiv::fuzz::textOf(bytes, size));

  std::size_t tagged = 0;
  const auto manager = KivResourceManager::newInstance();
  const auto session = std::make_shared<kiv::session::Session>(
      manager, [&](const kiv::Dictionary& line) { examine(line, tagged); });
  manager->addObserver(session, kiv::DispatchQueue::main());
  for (const auto& call : calls)
    session->takeLine(call);
  while (kiv::DispatchQueue::main()->drain() > 0) {
  }
  session->stop();
  session->run();
  require(tagged <= calls.size(), "a call is answered once");
  std::filesystem::remove_all(root);
  return 0;
}
