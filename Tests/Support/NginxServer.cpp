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
                     certificate.string(), "-batch"});
  if (tool.waitForExit() != 0) giveUp("The openssl tool could not make a certificate.");
}

NginxServer::NginxServer(const std::string& locations)
    : directory_(makeTemporaryDirectory()), certificate_(directory_) {
  const int plain = listeningSocket();
  const int secure = listeningSocket();
  port_ = portOf(plain);
  securePort_ = portOf(secure);
  writeConfiguration(locations);
  process_ = std::make_unique<ChildProcess>(
      nginxProgram(),
      std::vector<std::string>{"-p", directory_.string(), "-e", (directory_ / "error.log").string(),
                               "-c", (directory_ / "nginx.conf").string()},
      std::vector{"NGINX=" + std::to_string(plain) + ";" + std::to_string(secure) + ";"},
      std::vector{plain, secure});
  close(plain);
  close(secure);
}

NginxServer::~NginxServer() {
  stop(SIGTERM);
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

/// Stops the server with a signal that it passes on to its worker, which a kill would leave behind.
void NginxServer::stop(int signal) {
  process_->sendSignal(signal);
  (void)process_->waitForExit();
}

void NginxServer::writeConfiguration(const std::string& locations) const {
  // The worker of a server that root has started would not be root, and could not read the files.
  const char* const user = geteuid() == 0 ? "user root;\n" : "";
  std::ofstream(directory_ / "nginx.conf")
      << user
      << "daemon off;\n"
         "worker_processes 1;\n"
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
      << port_ << ";\n    listen 127.0.0.1:" << securePort_ << " ssl;\n    ssl_certificate "
      << certificate_.certificate << ";\n    ssl_certificate_key " << certificate_.key
      << ";\n    root root;\n"
      << locations << "\n  }\n}\n";
}

void NginxServer::addFile(const std::string& name, std::string_view contents) const {
  std::ofstream(directory_ / "root" / name, std::ios::binary) << contents;
}

std::string NginxServer::url(std::string_view path) const {
  return loopbackURL(port_, path);
}

std::string NginxServer::secureURL(std::string_view path) const {
  return loopbackURL(securePort_, path).insert(4, "s");
}

std::string NginxServer::stopAndTakeLog() {
  stop(SIGQUIT);
  std::ostringstream log;
  log << std::ifstream(directory_ / "access.log").rdbuf();
  return log.str();
}

}  // namespace kiv::test
