#include "Tests/Support/OldSecureServer.h"

#include <cstdio>
#include <cstdlib>

#include "Tests/Support/MainQueue.h"
#include "Tests/Support/ReadFile.h"

namespace kiv::test {

OldSecureServer::OldSecureServer() : certificate_(directory_.path()) {
  // The tool serves the files of its working directory and prints its port on standard output.
  const std::string command =
      "cd '" + directory_.path() +
      "' && exec openssl s_server -accept 127.0.0.1:0 -WWW -cert certificate.pem -key key.pem "
      "> output 2>&1";
  process_ = std::make_unique<ChildProcess>("/bin/sh", std::vector<std::string>{"-c", command});
  constexpr std::string_view announcement = "ACCEPT 127.0.0.1:";
  const bool hasStarted = waitUntil([&] {
    const std::string text = output();
    const auto place = text.find(announcement);
    const auto end = text.find('\n', place);
    if (place == text.npos || end == text.npos) return false;
    port_ = text.substr(place + announcement.size(), end - place - announcement.size());
    return true;
  });
  if (hasStarted) return;
  std::fprintf(stderr, "The openssl tool does not serve: %s\n", output().c_str());
  std::abort();
}

std::string OldSecureServer::output() const {
  return readFile(directory_.path("output"));
}

void OldSecureServer::addFile(const std::string& name, std::string_view contents) const {
  directory_.write(name, contents);
}

std::string OldSecureServer::url(std::string_view path) const {
  return ("https://127.0.0.1:" + port_).append(path);
}

}  // namespace kiv::test
