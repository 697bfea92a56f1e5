#include "Tests/Support/NginxServer.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Tests/Support/LoopbackServerSockets.h"
#include "Tests/Support/ReadFile.h"

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

/// Debian installs it in /usr/sbin, which is not in an ordinary user's PATH.
std::string nginxProgram() {
  const std::string usual = "/usr/sbin/nginx";
  return std::filesystem::exists(usual) ? usual : "nginx";
}

}  // namespace

namespace {

void runOpenSSL(const std::vector<std::string>& arguments) {
  ChildProcess tool("openssl", arguments);
  if (tool.waitForExit() != 0) giveUp("The openssl tool could not make a certificate.");
}

/// `openssl ca` is the only command that can set a start date in the past. It needs a few files for
/// its database.
void writeAuthority(const std::filesystem::path& directory) {
  const std::string place = directory.string();
  std::ofstream(directory / "index") << "";  // no certificates yet
  std::ofstream(directory / "authority.conf")
      << "[ca]\ndefault_ca = own\n[own]\ndatabase = " << place
      << "/index\nnew_certs_dir = " << place
      << "\nrand_serial = yes\ndefault_md = sha256\npolicy = any\nx509_extensions = names\n"
         "[any]\ncommonName = supplied\n"
         "[names]\nsubjectAltName = IP:127.0.0.1,DNS:localhost\nbasicConstraints = CA:TRUE\n";
}

}  // namespace

SelfSignedCertificate::SelfSignedCertificate(const std::filesystem::path& directory,
                                             Validity validity)
    : certificate(directory / "certificate.pem"), key(directory / "key.pem") {
  const std::string request = (directory / "request.pem").string();
  writeAuthority(directory);
  runOpenSSL({"req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
              "-subj", "/CN=localhost", "-keyout", key.string(), "-out", request, "-batch"});
  std::vector<std::string> signing{
      "ca",       "-batch",     "-selfsign",
      "-notext",  "-config",    (directory / "authority.conf").string(),
      "-keyfile", key.string(), "-in",
      request,    "-out",       certificate.string(),
      "-days",    "2"};
  if (validity == Validity::expired) {
    signing.insert(signing.end(), {"-startdate", "20200101000000Z", "-enddate", "20200102000000Z"});
  }
  runOpenSSL(signing);
}

NginxServer::NginxServer(const std::string& locations, SelfSignedCertificate::Validity validity)
    : directory_(makeTemporaryDirectory()), certificate_(directory_, validity) {
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
  EXPECT_TRUE(process_->hasStarted());
}

NginxServer::~NginxServer() {
  stop(SIGTERM);
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

/// Sends a signal that nginx passes on to its worker. SIGKILL would leave the worker running.
void NginxServer::stop(int signal) {
  process_->sendSignal(signal);
  (void)process_->waitForExit();
}

void NginxServer::writeConfiguration(const std::string& locations) const {
  // If root starts nginx, its worker runs as another user by default and cannot read the files.
  const char* const user = geteuid() == 0 ? "user root;\n" : "";
  std::ofstream(directory_ / "nginx.conf")
      << user
      << "daemon off;\n"
         "worker_processes 1;\n"
         "pid nginx.pid;\n"
         "events {}\n"
         "http {\n"
         "  log_format plain '$request_method $request_uri $status $server_protocol $connection';\n"
         "  access_log access.log plain;\n"
         "  client_body_temp_path tmp; proxy_temp_path tmp; fastcgi_temp_path tmp;\n"
         "  uwsgi_temp_path tmp; scgi_temp_path tmp;\n"
         "  gzip on; gzip_min_length 1; gzip_types *;\n"
         "  server {\n"
         "    listen 127.0.0.1:"
      << port_ << ";\n    listen 127.0.0.1:" << securePort_ << " ssl http2;\n    ssl_certificate "
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
  return readFile(directory_ / "access.log");
}

}  // namespace kiv::test
