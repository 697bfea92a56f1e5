#include "Tools/contentserver/ContentServer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include <httplib.h>

#include "Tools/contentserver/FileValidators.h"
#include "Tools/contentserver/Workers.h"

namespace kiv {

namespace {

namespace fs = std::filesystem;

constexpr const char* loopback = "127.0.0.1";

/// The fault of a path: a status to respond with or, if there is none, a body that is cut off.
struct Fault {
  std::optional<int> status;
};

std::string contentType(const fs::path& file) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 12> types{{
      {".css", "text/css; charset=utf-8"},
      {".gif", "image/gif"},
      {".html", "text/html; charset=utf-8"},
      {".jpeg", "image/jpeg"},
      {".jpg", "image/jpeg"},
      {".js", "text/javascript; charset=utf-8"},
      {".json", "application/json"},
      {".mp4", "video/mp4"},
      {".png", "image/png"},
      {".svg", "image/svg+xml"},
      {".webm", "video/webm"},
      {".zip", "application/zip"},
  }};
  const std::string extension = file.extension().string();
  const auto* const found = std::find_if(types.begin(), types.end(),
                                         [&](const auto& type) { return type.first == extension; });
  return std::string(found == types.end() ? "application/octet-stream" : found->second);
}

/// The regular file for a request path, or nullopt if there is none in the directory. Symbolic
/// links and ".." are resolved first, so that they cannot lead out of the directory.
std::optional<fs::path> findFile(const fs::path& directory, const std::string& requestPath) {
  if (requestPath.find('\0') != std::string::npos) return std::nullopt;
  std::error_code error;
  const fs::path file = fs::canonical(directory.string() + "/" + requestPath, error);
  if (error || !fs::is_regular_file(file, error)) return std::nullopt;
  const auto [end, rest] =
      std::mismatch(directory.begin(), directory.end(), file.begin(), file.end());
  if (end != directory.end() || rest == file.end()) return std::nullopt;
  return file;
}

/// Ignores the Range header if If-Range names another version of the file (RFC 9110, section
/// 13.1.5).
void setValidators(const FileValidators& validators, const httplib::Request& request,
                   httplib::Response& response) {
  response.set_header("ETag", validators.entityTag);
  response.set_header("Last-Modified", validators.lastModified);
  if (validators.permitRange(request.get_header_value("If-Range"))) return;
  // The library parses the ranges before it calls the handler and offers no other way to ignore
  // them.
  const_cast<httplib::Request&>(request).ranges.clear();
}

int statusOf(const httplib::Request& request, const httplib::Response& response) {
  if (response.status >= 0) return response.status;
  return request.ranges.empty() ? 200 : 206;
}

bool bindToPort(httplib::Server& server, int& port, std::error_code& error) {
  errno = 0;
  if (port == 0) {
    port = server.bind_to_any_port(loopback);
  } else if (!server.bind_to_port(loopback, port)) {
    port = -1;
  }
  if (port > 0) return true;
  error = errno != 0 ? std::error_code(errno, std::generic_category())
                     : std::make_error_code(std::errc::address_in_use);
  return false;
}

/// Sends the file in pieces. With `breaksOff` it declares the whole length, at least one byte, and
/// closes the connection after half of it.
void sendFile(const fs::path& file, bool breaksOff, httplib::Response& response) {
  auto stream = std::make_shared<std::ifstream>(file, std::ios::binary | std::ios::ate);
  if (!*stream) {
    response.status = 403;
    return;
  }
  const auto size = static_cast<std::size_t>(stream->tellg());
  const std::size_t end = breaksOff ? size / 2 : size;
  response.set_content_provider(
      breaksOff ? std::max<std::size_t>(size, 1) : size, contentType(file),
      [stream, end](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        if (offset >= end) return false;
        std::array<char, 64 * 1024> piece{};
        length = std::min({length, end - offset, piece.size()});
        stream->seekg(static_cast<std::streamoff>(offset));
        if (!stream->read(piece.data(), static_cast<std::streamsize>(length))) return false;
        return sink.write(piece.data(), length);
      });
}

/// SO_REUSEADDR lets a server restart on the port it has just used. Unlike the library's default,
/// SO_REUSEPORT, it does not allow two servers on one port.
void setSocketOptions(socket_t socket) {
  const int yes = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&yes), sizeof yes);
}

constexpr std::size_t workerCount = 8;

/// The threads that answer requests, started before the library listens. The library creates its
/// own pool while it listens, and would terminate the program if no thread could be created.
class WorkerQueue : public httplib::TaskQueue {
 public:
  explicit WorkerQueue(std::shared_ptr<Workers> workers) : workers_(std::move(workers)) {}
  void enqueue(std::function<void()> job) override { workers_->add(std::move(job)); }
  void shutdown() override { workers_->stop(); }

 private:
  const std::shared_ptr<Workers> workers_;
};

}  // namespace

class ContentServer::Implementation {
 public:
  explicit Implementation(std::string directory) : directory_(std::move(directory)) {}

  bool start(int port, std::error_code& error);
  void stop();
  [[nodiscard]] std::string url() const;

  void setRequestHandler(RequestHandler handler);
  void setFault(std::string_view path, std::optional<Fault> fault);
  [[nodiscard]] std::size_t requestCount(std::optional<std::string_view> path) const;

 private:
  void answer(const httplib::Request& request, httplib::Response& response);
  std::optional<Fault> noteRequest(const std::string& path);

  fs::path directory_;
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  std::atomic<bool> ended_ = false;

  std::mutex handlerMutex_;
  RequestHandler handler_;

  mutable std::mutex mutex_;
  std::string url_;
  std::map<std::string, Fault, std::less<>> faults_;
  std::map<std::string, std::size_t, std::less<>> counts_;
};

bool ContentServer::Implementation::start(int port, std::error_code& error) {
  stop();
  const fs::path directory = fs::canonical(directory_, error);
  if (error || !fs::is_directory(directory, error)) {
    error = std::make_error_code(std::errc::not_a_directory);
    return false;
  }
  directory_ = directory;

  auto server = std::make_unique<httplib::Server>();
  server->set_socket_options(setSocketOptions);
  server->set_tcp_nodelay(true);
  server->set_keep_alive_timeout(1);  // seconds; stop() waits as long for an idle connection
  server->set_pre_routing_handler([this](const auto& request, auto& response) {
    answer(request, response);
    return httplib::Server::HandlerResponse::Handled;
  });
  if (!bindToPort(*server, port, error)) return false;

  const auto workers = std::make_shared<Workers>(workerCount);
  server->new_task_queue = [workers] { return new WorkerQueue(workers); };
  server_ = std::move(server);
  ended_ = false;
  thread_ = std::thread([this] {
    server_->listen_after_bind();
    ended_ = true;
  });
  // The server ignores a stop until it listens.
  while (!server_->is_running() && !ended_)
    std::this_thread::yield();
  const std::lock_guard lock(mutex_);
  url_ = "http://" + std::string(loopback) + ":" + std::to_string(port);
  return true;
}

void ContentServer::Implementation::stop() {
  if (!server_) return;
  server_->stop();
  if (thread_.joinable()) thread_.join();  // start() may have failed
  server_.reset();
}

std::string ContentServer::Implementation::url() const {
  const std::lock_guard lock(mutex_);
  return url_;
}

void ContentServer::Implementation::setRequestHandler(RequestHandler handler) {
  const std::lock_guard lock(handlerMutex_);
  handler_ = std::move(handler);
}

void ContentServer::Implementation::setFault(std::string_view path, std::optional<Fault> fault) {
  const std::lock_guard lock(mutex_);
  if (fault) {
    faults_.insert_or_assign(std::string(path), *fault);
  } else if (const auto known = faults_.find(path); known != faults_.end()) {
    faults_.erase(known);
  }
}

std::size_t ContentServer::Implementation::requestCount(
    std::optional<std::string_view> path) const {
  const std::lock_guard lock(mutex_);
  std::size_t count = 0;
  for (const auto& [known, requests] : counts_) {
    if (!path || known == *path) count += requests;
  }
  return count;
}

std::optional<Fault> ContentServer::Implementation::noteRequest(const std::string& path) {
  const std::lock_guard lock(mutex_);
  ++counts_[path];
  const auto fault = faults_.find(path);
  if (fault == faults_.end()) return std::nullopt;
  return fault->second;
}

void ContentServer::Implementation::answer(const httplib::Request& request,
                                           httplib::Response& response) {
  const auto fault = noteRequest(request.path);
  if (request.method != "GET" && request.method != "HEAD") {
    response.status = 405;
    response.set_header("Connection", "close");  // the request body, if any, is not read
  } else if (fault && fault->status) {
    response.status = *fault->status;
  } else if (const auto file = findFile(directory_, request.path)) {
    const FileValidators validators = FileValidators::of(*file);
    setValidators(validators, request, response);
    const bool isKnown = validators.areKnown(request.get_header_value("If-None-Match"),
                                             request.get_header_value("If-Modified-Since"));
    if (isKnown && !fault) {
      response.status = 304;
    } else {
      sendFile(*file, fault.has_value(), response);
    }
  } else {
    response.status = 404;
  }
  const std::lock_guard lock(handlerMutex_);
  if (handler_) handler_(request.method, request.path, statusOf(request, response));
}

ContentServer::ContentServer(std::string directory)
    : implementation_(std::make_unique<Implementation>(std::move(directory))) {}

ContentServer::~ContentServer() {
  stop();
}

bool ContentServer::start(int port, std::error_code* error) {
  std::error_code ignored;
  return implementation_->start(port, error ? *error : ignored);
}

void ContentServer::stop() {
  implementation_->stop();
}

std::string ContentServer::url() const {
  return implementation_->url();
}

void ContentServer::setRequestHandler(RequestHandler handler) {
  implementation_->setRequestHandler(std::move(handler));
}

void ContentServer::failWithStatus(std::string_view path, int status) {
  implementation_->setFault(path, Fault{status});
}

void ContentServer::breakOff(std::string_view path) {
  implementation_->setFault(path, Fault{});
}

void ContentServer::heal(std::string_view path) {
  implementation_->setFault(path, std::nullopt);
}

std::size_t ContentServer::requestCount() const {
  return implementation_->requestCount(std::nullopt);
}

std::size_t ContentServer::requestCount(std::string_view path) const {
  return implementation_->requestCount(path);
}

}  // namespace kiv
