#include "Tests/Support/NginxServer.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "Tests/Support/LoopbackServerSockets.h"

namespace kiv::test {

namespace {

[[noreturn]] void giveUp(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

std::filesystem::path makeTemporaryDirectory() {
  auto pattern = (std::filesystem::temp_directory_path() / "nginx-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) giveUp("No temporary directory could be made.");
  std::filesystem::create_directories(std::filesystem::path(pattern) / "root");
  return pattern;
}

/// Where Debian puts it, which is not where an ordinary user looks for programs.
std::string nginxProgram() {
  const std::string usual = "/usr/sbin/nginx";
  return std::filesystem::exists(usual) ? usual : "nginx";
}

}  // namespace

SelfSignedCertificate::SelfSignedCertificate(const std::filesystem::path& directory)
    : certificate(directory / "certificate.pem"), key(directory / "key.pem") {
  ChildProcess tool("openssl",
                    {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                     "-nodes", "-days", "2", "-subj", "/CN=localhost", "-addext",
                     "subjectAltName=IP:127.0.0.1,DNS:localhost", "-keyout", key.string(), "-out",
                     certificate.string(), "-batch", "-quiet"});
  if (tool.waitForExit() != 0) giveUp("The openssl tool could not make a certificate.");
}

NginxServer::NginxServer(const std::string& locations)
    : directory_(makeTemporaryDirectory()),
      certificate_(directory_),
      socket_(listeningSocket()),
      secureSocket_(listeningSocket()) {
  writeConfiguration(locations);
  const auto inherited =
      "NGINX=" + std::to_string(socket_) + ";" + std::to_string(secureSocket_) + ";";
  process_ = std::make_unique<ChildProcess>(
      nginxProgram(),
      std::vector<std::string>{"-p", directory_.string(), "-e", (directory_ / "error.log").string(),
                               "-c", (directory_ / "nginx.conf").string()},
      std::vector{inherited}, std::vector{socket_, secureSocket_});
}

NginxServer::~NginxServer() {
  process_.reset();
  close(socket_);
  close(secureSocket_);
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void NginxServer::writeConfiguration(const std::string& locations) const {
  std::ofstream(directory_ / "nginx.conf")
      << "daemon off;\n"
         "master_process off;\n"
         "pid nginx.pid;\n"
         "events {}\n"
         "http {\n"
         "  log_format plain '$request_method $request_uri $status $connection';\n"
         "  access_log access.log plain;\n"
         "  client_body_temp_path tmp; proxy_temp_path tmp; fastcgi_temp_path tmp;\n"
         "  uwsgi_temp_path tmp; scgi_temp_path tmp;\n"
         "  gzip on; gzip_min_length 1; gzip_types *;\n"
         "  server {\n"
         "    listen 127.0.0.1:"
      << portOf(socket_) << ";\n    listen 127.0.0.1:" << portOf(secureSocket_)
      << " ssl;\n    ssl_certificate " << certificate_.certificate << ";\n    ssl_certificate_key "
      << certificate_.key << ";\n    root root;\n"
      << locations << "\n  }\n}\n";
}

void NginxServer::addFile(const std::string& name, std::string_view contents) const {
  std::ofstream(directory_ / "root" / name, std::ios::binary) << contents;
}

std::string NginxServer::url(std::string_view path) const {
  return loopbackURL(portOf(socket_), path);
}

std::string NginxServer::secureURL(std::string_view path) const {
  return loopbackURL(portOf(secureSocket_), path).insert(4, "s");
}

std::string NginxServer::stopAndTakeLog() {
  process_->sendSignal(SIGQUIT);
  (void)process_->waitForExit();
  std::ostringstream log;
  log << std::ifstream(directory_ / "access.log").rdbuf();
  return log.str();
}

}  // namespace kiv::test
