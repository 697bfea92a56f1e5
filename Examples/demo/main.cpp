// A small host: it loads the sample content from a server on the loopback interface, in three
// chapters, and checks everything that it shows. Each chapter is a process of its own.

#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Examples/demo/Chapters.h"
#include "Examples/demo/Report.h"
#include "KivResource/KivResource.h"

namespace {

constexpr std::string_view usage =
    "usage: kivresource-demo first|restart|update --content DIR --root DIR [--log FILE] "
    "[--terminal]\n";

using Chapter = void (*)(const demo::Setting&, demo::Report&);

struct Arguments {
  Chapter chapter = nullptr;
  demo::Setting setting;
  std::string log;
  bool terminal = false;
};

std::optional<Arguments> parse(int argc, char** argv) {
  static const std::map<std::string_view, Chapter> chapters{
      {"first", demo::firstLoad}, {"restart", demo::restart}, {"update", demo::update}};
  Arguments arguments;
  for (int index = 1; index < argc; ++index) {
    const std::string_view word = argv[index];
    const bool hasValue = index + 1 < argc;
    if (const auto found = chapters.find(word); found != chapters.end()) {
      arguments.chapter = found->second;
    } else if (word == "--terminal") {
      arguments.terminal = true;
    } else if (word == "--content" && hasValue) {
      arguments.setting.content = argv[++index];
    } else if (word == "--root" && hasValue) {
      arguments.setting.root = argv[++index];
    } else if (word == "--log" && hasValue) {
      arguments.log = argv[++index];
    } else {
      return std::nullopt;
    }
  }
  const bool complete =
      arguments.chapter && !arguments.setting.content.empty() && !arguments.setting.root.empty();
  return complete ? std::optional(arguments) : std::nullopt;
}

/// Sends the framework's log lines to the file instead of the system log.
void logTo(const std::string& path) {
  const auto file = std::make_shared<std::ofstream>(path, std::ios::app);
  kiv::SystemLog::setHandler([file](std::string_view line) { *file << line << std::endl; });
}

}  // namespace

int main(int argc, char** argv) {
  const auto arguments = parse(argc, argv);
  if (!arguments) {
    std::cerr << usage;
    return 2;
  }
  if (!arguments->log.empty()) logTo(arguments->log);
  KivStorageService::setRootPath(arguments->setting.root);
  demo::Report report(arguments->terminal);
  arguments->chapter(arguments->setting, report);
  return report.everythingHeld() ? 0 : 1;
}
