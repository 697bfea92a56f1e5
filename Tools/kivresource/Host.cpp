#include "Tools/kivresource/Host.h"

#include <filesystem>
#include <iostream>
#include <string>
#include <syslog.h>
#include <system_error>
#include <unistd.h>

#include "KivResource/KivResource.h"
#include "KivSession/ResourceJSON.h"
#include "Tools/kivresource/ExitStatus.h"

namespace tool {

namespace {

/// Returns absolute paths unchanged.
std::string absolutePath(const std::string& path) {
  std::error_code ignored;
  const auto absolute = std::filesystem::absolute(path, ignored);
  // Because of symbolic links, ".." cannot be resolved in the text.
  const bool leadsUp = path.find("..") != std::string::npos;
  return path.starts_with('/') || leadsUp ? absolute.string()
                                          : absolute.lexically_normal().string();
}

}  // namespace

bool configureFramework(const Options& options) {
  if (options.root) KivStorageService::setRootPath(absolutePath(*options.root));
  if (KivStorageService::rootPath().empty()) {
    complain("there is no directory for the user's data: name a storage root with --root");
    return false;
  }
  if (options.resources) kiv::Bundle::setFrameworkResourcesPath(options.resources);
  KivAppConfiguration::sharedInstance()->setMainACSDomain(options.mainURL);
  KivAppConfiguration::sharedInstance()->setReserveACSDomain(options.reserveURL);
  return true;
}

void keepLogFromTerminal() {
  if (isatty(STDERR_FILENO) != 1) return;
  kiv::SystemLog::setHandler([](std::string_view line) {
    syslog(LOG_USER | LOG_NOTICE, "%s", std::string(line).c_str());
  });
}

void printJSONLine(const kiv::Dictionary& line) {
  std::cout << kiv::session::compactJSON(line).append(1, '\n') << std::flush;
}

int endOutput(int status) {
  if (std::cout.flush()) return status;
  complain("standard output could not be written");
  return status == exitStatus::success ? exitStatus::failure : status;
}

void complain(std::string_view text) {
  std::cerr << "kivresource: " << kiv::escapingControlCharacters(text) << std::endl;
}

}  // namespace tool
